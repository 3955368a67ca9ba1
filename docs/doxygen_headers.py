# Copies the public headers for doxygen: doxygen_headers.py FOLDER COPY. The headers keep their plain form: a comment that describes
# several declarations stands once above them, arguments are lists, fields have their comment behind them. In the copy each declaration
# has the comment for itself, with the arguments that it has, and the words that doxygen wants.
import re
import sys
from pathlib import Path

ARGUMENT = re.compile(r"^  (\S+(?:, \S+)*) +(in/out|in|out)  +(\S.*)$")
DIRECTION = {"in": "in", "out": "out", "in/out": "in,out"}


# The functions and constants of all headers, which become links wherever they are named.
def known_names(texts):
    names = set()
    for text in texts:
        names.update(re.findall(r"\b_?Ko\w+(?=\()", text))
        names.update(re.findall(r"^ +(KO_\w+) = ", text, re.MULTILINE))
        names.update(re.findall(r"\b(KO_\w+) = \d+,? ", text))
    return names


def escaped(text, names):
    text = text.replace("\\", "\\\\").replace("<", "&lt;").replace(">", "&gt;").replace("@", "\\@")
    return re.sub(r"\b_?K[oO]\w+(?!\w|\()", lambda found: ("#" if found[0] in names else "") + found[0], text)


# Fields and constants with their comment; of several fields in one line each gets it.
def field(found, names):
    comment = " /**< " + escaped(re.sub(r"\s+", " ", found["comment"]), names) + " */"
    several = re.match(r"(\s+)([\w ]+?) (\w+(?:, \w+)+);$", found["code"])
    if not several:
        return found["code"] + comment
    return "".join(f"{several[1]}{several[2]} {name};{comment}\n" for name in several[3].split(", ")).rstrip("\n")


# The lines of a comment without its marks.
def content(comment):
    body = comment.strip()[2:-2].lstrip("*")
    return [re.sub(r"^\s*\* ?", "", line).rstrip() for line in body.strip("\n").split("\n")]


# Arguments as (names, direction, text), and the text around them.
def taken_apart(lines):
    text, arguments = [], []
    for line in lines:
        found = ARGUMENT.match(line)
        if found:
            arguments.append([found[1].split(", "), DIRECTION[found[2]], found[3]])
            text.append("")
        elif arguments and line.startswith("    "):
            arguments[-1][2] += " " + line.strip()
        else:
            text.append(line.strip())
    return "\n".join(text).strip(), arguments


# What a function does and what comes of it, where that is not what the only sentence is about.
def split_result(text):
    found = re.search(r"(?<=[.\n:]) ?\bReturns? (?=\S)", text)
    return (text[: found.start()], "@return " + text[found.end() :]) if found else (text, "")


def documented(comment, declaration, group, names):
    text, arguments = taken_apart(content(comment))
    known = re.findall(r"\w+", declaration)
    anywhere = set(re.findall(r"\w+", " ".join(group)))
    purpose, result = split_result(escaped(text, names))
    lines = ["/**", purpose.rstrip(), ""]
    for argument_names, direction, meaning in arguments:
        # A name that no declaration has is left for doxygen to complain about.
        for name in argument_names:
            if name in known or name not in anywhere:
                lines.append(f"@param[{direction}] {name} {escaped(meaning, names)}")
    return "\n".join(lines + [result]) + "\n*/\n"


# The declarations behind a comment, up to an empty line.
def declarations(text):
    end = text.find("\n\n")
    group = text[: end if end != -1 else len(text)]
    if "{" in group:
        return [group]
    return [part for part in re.split(r"(?<=;)\n", group) if part.strip()]


def prepared(text, names, is_whole):
    head = re.match(r"/\*\n.*?\*/\n", text, re.DOTALL)
    about = escaped("\n".join(content(head[0])), names)
    text = f"/** @{'mainpage ko' if is_whole else 'file'}\n{about}\n*/\n" + text[head.end() :]
    text = re.sub(r"^(?P<code>[^\n]*[,;}\w])[ ]+/\* (?P<comment>.*?) \*/", lambda found: field(found, names), text,
                  flags=re.MULTILINE | re.DOTALL)
    result, place = [], 0
    for found in re.finditer(r"^/\*\*(?! @).*?\*/\n", text, re.MULTILINE | re.DOTALL):
        if found.start() < place:
            continue
        result.append(text[place : found.start()])
        group = declarations(text[found.end() :])
        for declaration in group:
            result.append(documented(found[0], declaration, group, names) + declaration + "\n")
        place = found.end() + sum(len(declaration) + 1 for declaration in group)
    return "".join(result) + text[place:]


folder, copy = Path(sys.argv[1]), Path(sys.argv[2])
texts = {path.relative_to(folder): path.read_text(encoding="utf-8") for path in sorted(folder.rglob("*.h"))}
names = known_names(texts.values())
for path, text in texts.items():
    (copy / path).parent.mkdir(parents=True, exist_ok=True)
    (copy / path).write_text(prepared(text, names, path == Path("ko.h")), encoding="utf-8")
