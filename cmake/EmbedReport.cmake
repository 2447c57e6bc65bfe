# cmake -DREPORT=folder -DOUTPUT=file.cpp -P EmbedReport.cmake
#
# Makes one page of index.html and the style sheets and scripts it names, and writes it as C++: what stands before the
# place of the data, and what stands behind it.

file(READ ${REPORT}/index.html page)
foreach(kind IN ITEMS css js)
  if(kind STREQUAL "css")
    set(line "<link rel=\"stylesheet\" href=\"[^\"]+\\.css\">")
    set(tag style)
  else()
    set(line "<script src=\"[^\"]+\\.js\"></script>")
    set(tag script)
  endif()
  string(REGEX MATCHALL "${line}" references "${page}")
  foreach(reference IN LISTS references)
    string(REGEX REPLACE ".*\"([^\"]+\\.${kind})\".*" "\\1" name "${reference}")
    file(READ ${REPORT}/${name} content)
    string(FIND "${content}" "</${tag}" early)
    if(NOT early EQUAL -1)
      message(FATAL_ERROR "${name} holds </${tag}, which would end it early")
    endif()
    string(REPLACE "${reference}" "<${tag}>\n${content}</${tag}>" page "${page}")
  endforeach()
endforeach()

# The place of the data.
set(open "<script id=\"data\" type=\"application/json\">")
string(FIND "${page}" "${open}QAV_DATA</script>" at)
string(FIND "${page}" "${open}QAV_DATA</script>" last REVERSE)
if(at EQUAL -1 OR NOT at EQUAL last)
  message(FATAL_ERROR "index.html must hold ${open}QAV_DATA</script> once")
endif()
string(LENGTH "${open}" length)
math(EXPR at "${at} + ${length}")
string(SUBSTRING "${page}" 0 ${at} before)
math(EXPR at "${at} + 8")
string(SUBSTRING "${page}" ${at} -1 behind)

# Compilers limit the length of one literal; adjacent ones are joined.
function(make_literal text result)
  set(literal "")
  string(LENGTH "${text}" length)
  set(from 0)
  while(from LESS length)
    string(SUBSTRING "${text}" ${from} 4000 piece)
    string(APPEND literal "    R\"QAV_PAGE(${piece})QAV_PAGE\"\n")
    math(EXPR from "${from} + 4000")
  endwhile()
  set(${result} "${literal}" PARENT_SCOPE)
endfunction()
make_literal("${before}" before)
make_literal("${behind}" behind)
file(WRITE ${OUTPUT}
     "#include \"tools/inspect/inspect_page.h\"\n\nnamespace qav::tool {\n\nextern const std::string_view reportPageBefore =\n${before}"
     "    ;\nextern const std::string_view reportPageBehind =\n${behind}    ;\n\n}  // namespace qav::tool\n")
