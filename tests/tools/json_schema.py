"""Validates JSON against the part of JSON Schema (2020-12) that the project's schema uses, and refuses any other part."""

import re

ANNOTATIONS = {"$schema", "$defs", "title", "description"}
TYPES = {
    "object": dict,
    "array": list,
    "string": str,
    "boolean": bool,
    "null": type(None),
}


class Invalid(Exception):
    pass


def is_type(value, name):
    if name == "integer":
        return isinstance(value, int) and not isinstance(value, bool)
    if name == "number":
        return isinstance(value, (int, float)) and not isinstance(value, bool)
    return isinstance(value, TYPES[name])


def same(a, b):
    return type(a) is type(b) and a == b


def validate(value, schema, root=None, at="$"):
    """Raise Invalid, with the path of what is wrong."""
    root = schema if root is None else root

    def require(condition, text):
        if not condition:
            raise Invalid("%s: %s" % (at, text))

    for keyword, rule in schema.items():
        if keyword in ANNOTATIONS:
            continue
        elif keyword == "$ref":
            assert rule.startswith("#/"), rule
            target = root
            for part in rule[2:].split("/"):
                target = target[part]
            validate(value, target, root, at)
        elif keyword == "oneOf":
            errors = []
            for option in rule:
                try:
                    validate(value, option, root, at)
                except Invalid as error:
                    errors.append(str(error))
            require(len(errors) == len(rule) - 1, "fits %d of %s" % (len(rule) - len(errors), errors))
        elif keyword == "type":
            names = rule if isinstance(rule, list) else [rule]
            require(any(is_type(value, name) for name in names), "%r is no %s" % (value, names))
        elif keyword == "enum":
            require(any(same(value, choice) for choice in rule), "%r is not among %r" % (value, rule))
        elif keyword == "minimum":
            require(not is_type(value, "number") or value >= rule, "%r is below %r" % (value, rule))
        elif keyword == "maximum":
            require(not is_type(value, "number") or value <= rule, "%r is above %r" % (value, rule))
        elif keyword == "minLength":
            require(not isinstance(value, str) or len(value) >= rule, "is shorter than %d" % rule)
        elif keyword == "pattern":
            require(not isinstance(value, str) or re.search(rule, value), "%r does not match %s" % (value, rule))
        elif keyword == "required":
            for name in rule if isinstance(value, dict) else ():
                require(name in value, "lacks %s" % name)
        elif keyword == "properties":
            for name, part in rule.items() if isinstance(value, dict) else ():
                if name in value:
                    validate(value[name], part, root, "%s.%s" % (at, name))
        elif keyword == "additionalProperties":
            assert rule is False, "only false is understood"
            for name in value if isinstance(value, dict) else ():
                require(name in schema["properties"], "has the unknown %s" % name)
        elif keyword == "minItems":
            require(not isinstance(value, list) or len(value) >= rule, "has fewer than %d items" % rule)
        elif keyword == "maxItems":
            require(not isinstance(value, list) or len(value) <= rule, "has more than %d items" % rule)
        elif keyword == "items":
            for i, item in enumerate(value) if isinstance(value, list) else ():
                validate(item, rule, root, "%s[%d]" % (at, i))
        else:
            raise AssertionError("the keyword %s is not understood" % keyword)
