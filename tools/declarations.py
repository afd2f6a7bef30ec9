"""Reads what a C++ file declares.

This is not a parser of the language, but enough of one for this tree: it follows namespaces and classes, skips bodies
and initialisers, and takes the name of each declaration. Templates are left out: no single source defines them.
"""

import re

TOKEN = re.compile(
    r"""(?P<skipped>
          //[^\n]* | /\*.*?\*/ | ^[ \t]*\#(?:\\\n|[^\n])* | \n | [^\S\n]+
        | \b(?:u8|[uUL])?R"(?P<mark>[^()\\\s]*)\(.*?\)(?P=mark)" | (?:\b(?:u8|[uUL]))?"(?:\\.|[^"\\\n])*"
        | (?:\b(?:u8|[uUL]))?'(?:\\.|[^'\\\n])*'
        | \[\[.*?\]\] | __attribute__\s*\(\(.*?\)\)(?!\))
        | \b(?:alignas|decltype|explicit|noexcept)\s*\((?:[^()]|\([^()]*\))*\))
      | (?P<token>[A-Za-z_]\w* | \d(?:'?[\w.])* | :: | -> | .)""",
    re.DOTALL | re.MULTILINE | re.VERBOSE)
CLASS_KEYS = {"class", "struct", "union"}
NO_PROMISE = {"using", "typedef", "friend", "static_assert", "enum", "template"}


def tokens_of(text):
    """The tokens of a file, each with its line, without comments, directives, literals and attributes."""
    line = 1
    for match in TOKEN.finditer(text):
        if match["token"]:
            yield match["token"], line
        line += match[0].count("\n")


def without_template_head(words):
    """Only a full specialisation is left of a template: it is defined once, like an ordinary declaration."""
    return words[3:] if words[:3] == ["template", "<", ">"] else words


def entered_scope(words):
    """The name of the namespace or class that begins after these words, and whether it is a class; else None."""
    words = without_template_head(words)
    if words == ["extern"]:  # "C"
        return "", False
    if "namespace" in words[:2]:
        return "".join(words[words.index("namespace") + 1:]), False
    if words[:1] == ["template"]:
        parts = words[words.index(">") + 1:]  # its class is followed as far as its name
    else:
        parts = words
    if parts[:1] == ["enum"] or not CLASS_KEYS & set(parts) or {"(", "="} & set(parts):
        return None
    head = parts[:parts.index(":")] if ":" in parts else parts
    name = re.search(r"((?:\w+ :: )*\w+)(?: <.*)?$", " ".join(word for word in head if word != "final"))
    return (name[1].replace(" ", "") if name and name[1] not in CLASS_KEYS else ""), True


def name_before(words, at):
    """The name, qualified or not, that ends before `at`."""
    start = at - 1
    while start >= 1 and (words[start - 1] in ("::", "~") or words[start] == "::"):
        start -= 1
    return "".join(words[start:at])


def declared_names(words):
    """The names that a declaration introduces, and whether it is that of a function."""
    angles = 0
    for at, word in enumerate(words):
        if word == "operator":
            return [name_before(words, at) + "operator" if words[at - 1] == "::" else "operator"], True
        angles += (word == "<") - (word == ">")
        if angles > 0:
            continue
        if word == "=":
            break
        if word == "(":
            if words[at + 1] in "*&":
                return [words[at + 2]], False
            return [name_before(words, at)], True
    declarators = re.sub(r"<[^;]*>|\[[^]]*\]|=.*", " ", " ".join(words)).split(",")
    return [match[1] for part in declarators if (match := re.search(r"(\w+)\s*$", part))], False


class Declarations:
    """What one file declares, by qualified name.

    classes    the classes that it defines
    promised   functions and variables that a source has to define: name -> (line, whether it is a function)
    defined    functions and variables that it defines itself
    """

    def __init__(self, text):
        self.classes = set()
        self.promised = {}
        self.defined = set()
        self._read(list(tokens_of(text)))
        for name in self.defined:
            self.promised.pop(name, None)

    def _read(self, tokens):
        scopes = []  # name, and whether it is a class
        statement = []
        parentheses = 0
        at = 0
        while at < len(tokens):
            word, line = tokens[at]
            at += 1
            parentheses += (word == "(") - (word == ")")
            if word == "{":
                scope = None if parentheses else entered_scope([text for text, _ in statement])
                if scope:
                    scopes.append(scope)
                    if scope[1]:
                        self.classes.add(self._qualified(scopes))
                    statement = []
                    continue
                at = self._after_braces(tokens, at)
                if parentheses:
                    statement.append(("0", line))  # a default argument
                else:
                    statement.append(("{}", line))
                    if at == len(tokens) or tokens[at][0] not in (",", "{", ";"):
                        self._take(scopes, statement)  # the body of a function
                        statement = []
            elif word == "}":
                if scopes:
                    scopes.pop()
                statement = []
            elif word == ";" and not parentheses:
                self._take(scopes, statement)
                statement = []
            elif word == ":" and [text for text, _ in statement] in (["public"], ["protected"], ["private"]):
                statement = []
            else:
                statement.append((word, line))

    @staticmethod
    def _after_braces(tokens, at):
        depth = 1
        while at < len(tokens) and depth:
            depth += (tokens[at][0] == "{") - (tokens[at][0] == "}")
            at += 1
        return at

    @staticmethod
    def _qualified(scopes, *name):
        return "::".join([scope for scope, _ in scopes if scope] + list(name))

    def _take(self, scopes, statement):
        words = without_template_head([text for text, _ in statement])
        if len(words) < 2 or words[0] in NO_PROMISE or words[:2] == ["extern", "template"]:
            return
        if words[0] in CLASS_KEYS and "(" not in words:
            return  # announces a class
        in_class = bool(scopes) and scopes[-1][1]
        names, is_function = declared_names(words)
        if in_class and not is_function:
            return
        here = bool({"inline", "constexpr", "consteval", "{}"} & set(words)) or words[-2] == "="
        if not in_class:
            here = here or "static" in words
            if not is_function and "extern" not in words:
                here = here or "const" in words or "=" in words
        for name in names:
            qualified = self._qualified(scopes, name)
            if here:
                self.defined.add(qualified)
            else:
                self.promised[qualified] = (statement[0][1], is_function)
