# SPDX-License-Identifier: MIT
"""The small faults that are put into a C++ source, one at a time."""
import collections
import re
from dataclasses import dataclass

TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<directive>^[ \t]*\#(?:[^\n]*\\\n)*[^\n]*)
      | (?P<attribute>\[\[.*?\]\])
      | (?P<assertion>\bstatic_assert\b[^;]*;)
      | (?P<string>"(?:[^"\\]|\\.)*")
      | (?P<character>'(?:[^'\\]|\\.)*')
      | (?P<number>\b(?:0x[0-9a-fA-F']+|[0-9][0-9']*(?:\.[0-9]+)?)[uUlL]*)
      | (?P<word>[A-Za-z_]\w*)
      | (?P<sign>\+\+|--|->|<<|>>|::|&&|\|\||[=!<>+\-|&*/%^]=|[^\s\w])
      | (?P<blank>\s+)""",
    re.VERBOSE | re.MULTILINE | re.DOTALL)

# The compiler looks at an assertion, and not the tests.
UNCHANGED = ("comment", "directive", "attribute", "assertion", "blank")
SWAPPED = {
    "==": "!=", "!=": "==", "<": "<=", ">": ">=", "<=": "<", ">=": ">", "&&": "||", "||": "&&",
    "+": "-", "-": "+", "+=": "-=", "-=": "+=", "++": "--", "--": "++", "&": "|",
    "true": "false", "false": "true",
}
LEVELS = {"kFailure": "kNotable", "kNotable": "kMilestone", "kMilestone": "kRoutine",
          "kRoutine": "kStep", "kStep": "kItem", "kItem": "kStep"}
LOGS = {"ZORBE_LOG", "ZORBE_LOG_NOEXCEPT"}
# What a statement that is taken out as a whole may not begin with.
KEPT = re.compile(r"^(return|throw|using|namespace|template|typedef|static_assert|friend|struct|class"
                  r"|enum|constexpr|const|static|extern|auto|break|continue|public|private|case"
                  r"|default|if|for|while|do|switch|else|try|catch|delete\b(?!\s))\b")
STATEMENT = re.compile(r"^(?:\(void\))?[*:A-Za-z_][\w:.\[\]*<>-]*(?:\(.*\)|\s*(?:[-+|&]?=[^=]).*)$"
                       r"|^(?:\+\+|--)?[\w.>-]+(?:\+\+|--)?$|^delete\s.*$", re.DOTALL)


@dataclass(frozen=True)
class Mutant:
    path: str    # below the folder of the sources
    begin: int   # what is replaced
    end: int
    text: str    # by what
    line: int
    source: str  # the line as it stands, without its indentation
    what: str
    nth: int     # of those in the file that are alike but for the place

    def key(self):
        """Outlives changes elsewhere in the file."""
        which = f" ({self.nth})" if self.nth > 1 else ""
        return f"{self.path} | {self.source} | {self.what}{which}"

    def applied(self, text):
        return text[:self.begin] + self.text + text[self.end:]


@dataclass(frozen=True)
class Token:
    kind: str
    text: str
    begin: int
    end: int


def tokens(text):
    found = (Token(m.lastgroup, m.group(), m.start(), m.end()) for m in TOKEN.finditer(text))
    return [t for t in found if t.kind not in UNCHANGED]


def replaced(token, previous, following, level_is_next):
    """What may stand in the place of a token, or None."""
    spaced = previous and following and previous.end < token.begin and token.end < following.begin
    if token.kind == "number":
        return f"({token.text} + 1)"
    if token.kind == "string":
        return token.text[:-1] + '~"'
    if token.kind == "word":
        if level_is_next and token.text in LEVELS:
            return LEVELS[token.text]
        return SWAPPED.get(token.text)
    if token.kind != "sign":
        return None
    if token.text == "!":
        return ""
    if token.text in ("++", "--"):
        return SWAPPED[token.text]
    return SWAPPED.get(token.text) if spaced else None


def closing(all_tokens, opening):
    depth = 0
    for i in range(opening, len(all_tokens)):
        depth += {"(": 1, ")": -1}.get(all_tokens[i].text, 0)
        if depth == 0:
            return i
    return None


def negated_conditions(all_tokens):
    for i, token in enumerate(all_tokens[:-1]):
        if token.text in ("if", "while") and all_tokens[i + 1].text == "(":
            end = closing(all_tokens, i + 1)
            signs = {t.text for t in all_tokens[i + 2:end]}
            # With a single comparison, the opposite sign says the same.
            if signs & {"&&", "||"} or not signs & {"==", "!=", "!"}:
                yield all_tokens[i + 1].end, all_tokens[end].begin, token


def dropped_flags(all_tokens):
    for a, b in zip(all_tokens, all_tokens[1:]):
        if a.text == "|" and b.kind == "word" and b.text.isupper():
            yield a, b


def log_level(all_tokens, i):
    """Whether the token is the second argument of one of the logging macros."""
    depth, commas = 0, 0
    for token in reversed(all_tokens[:i]):
        depth += {")": 1, "(": -1}.get(token.text, 0)
        commas += depth == 0 and token.text == ","
        if depth < 0:
            break
    else:
        return False
    before = all_tokens[all_tokens.index(token) - 1]
    return commas == 1 and before.text in LOGS


def statements(all_tokens):
    """Statements that are a call or an assignment and nothing else, without their semicolon."""
    begin, depth = 0, 0
    for i, token in enumerate(all_tokens):
        depth += {"(": 1, ")": -1}.get(token.text, 0)
        if token.text in ("{", "}", "else") or (token.text == ")" and depth == 0 and is_condition(all_tokens, i)):
            begin, depth = i + 1, 0
        elif token.text == ";" and depth == 0:
            if i > begin:
                yield all_tokens[begin], all_tokens[i - 1]
            begin = i + 1


def is_condition(all_tokens, close):
    depth = 0
    for i in range(close, -1, -1):
        depth += {")": 1, "(": -1}.get(all_tokens[i].text, 0)
        if depth == 0:
            return i > 0 and all_tokens[i - 1].text in ("if", "while", "for")
    return False


def mutants(path, text):
    all_tokens = tokens(text)
    alike = collections.Counter()

    def mutant(begin, end, new, what):
        first = text.rfind("\n", 0, begin) + 1
        source = text[first:text.find("\n", begin)].strip()
        alike[source, what] += 1
        return Mutant(path, begin, end, new, text.count("\n", 0, begin) + 1, source, what,
                      alike[source, what])

    for i, token in enumerate(all_tokens):
        previous = all_tokens[i - 1] if i else None
        following = all_tokens[i + 1] if i + 1 < len(all_tokens) else None
        is_level = token.text in LEVELS and log_level(all_tokens, i)
        new = replaced(token, previous, following, is_level)
        if new is not None:
            yield mutant(token.begin, token.end, new, f"{token.text} becomes {new or 'nothing'}")
    for begin, end, token in negated_conditions(all_tokens):
        yield mutant(begin, end, f"!({text[begin:end]})", f"the condition of {token.text} is negated")
    for sign, flag in dropped_flags(all_tokens):
        yield mutant(sign.begin, flag.end, "", f"{flag.text} is left out")
    for first, last in statements(all_tokens):
        statement = text[first.begin:last.end]
        if STATEMENT.match(statement) and not KEPT.match(statement):
            # In a condition's stead, so that what it declares or silences stays valid.
            yield mutant(first.begin, last.end, f"if (false) {statement}", "the statement is left out")
