"""Copy a program out of a document: the first block with a main() of a header's @code or a text's ```c."""

import pathlib
import re
import sys

document, program = map(pathlib.Path, sys.argv[1:])
text = document.read_text()
if document.suffix == ".h":
    text = re.sub(r"^ \*(  )?", "", text, flags=re.M)
blocks = re.findall(r"(?:@code|```c)\n(.*?)(?:@endcode|```)", text, re.S)
program.write_text(next(block for block in blocks if "int main(" in block))
