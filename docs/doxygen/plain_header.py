# SPDX-License-Identifier: Apache-2.0
"""What the plain comments of a public header are about.

- The first line names the licence; the first comment behind it is about the file.
- A comment is about every declaration of the paragraph that it begins, up to a blank line; a
  destructor takes it only where it comes first.
- A comment with a blank line behind it is a title, and text about all that follows.
- A comment behind a declaration is about that one, and part of it here.
- An include guard, a deleted, a defaulted and an explicitly specialised member say nothing: what
  they do stands elsewhere.
- In a comment, `Errors:`, `Threads:` and `Ownership:` begin a section that ends at a blank line,
  and lines with columns laid out by hand stay as they are.
"""

import re

SECTION = re.compile(r"\s*(Errors|Threads|Ownership):\s+(.*)")
COLUMNS = re.compile(r"   +\S")
COMMENT_BEHIND = re.compile(r"(?s)(.*?\S\s*)(//|/\*)(.*)")
SILENT = re.compile(r"template <>|(?!template).*= (delete|default);|#define \w+_H$", re.DOTALL)
PLAIN = re.compile(r"#(?!define)|\}|(public|private):|extern \"C\"|namespace\b|$")
MARKS = re.compile(r"^\s*(/\*|\*(?!/)|//) ?|\s*\*/$")


def comment_at(lines, at):
    """The text of the comment that begins at a line, in lines, and the number of the line behind."""
    start, is_block = at, lines[at].strip().startswith("/*")
    while is_block and not lines[at].rstrip().endswith("*/"):
        at += 1
    while not is_block and lines[at + 1].strip().startswith("//"):
        at += 1
    return [MARKS.sub("", line).rstrip() for line in lines[start : at + 1]], at + 1


def declaration_at(lines, at):
    """The declaration that begins at a line, comment behind it included, and the line after it."""
    end, code = at, ""
    while end == at or not (code.count("(") == code.count(")") and
                            (code.endswith((";", "{", "}", ",")) or lines[end].strip().startswith("}"))):
        code += re.sub(r"\s*(//|/\*).*", "", lines[end]).rstrip()
        end += 1
        if code.startswith("#"):
            break
    if "/*" in lines[end - 1]:
        while "*/" not in lines[end - 1]:
            end += 1
    return "\n".join(lines[at:end]), end


def parts(path):
    """Yields the header piece by piece: ("file", comment), ("section", comment), ("line", text) for
    what needs no comment, and ("declaration", text, comment or None)."""
    with open(path, encoding="utf-8") as file:
        lines = file.read().splitlines()
    about, at = comment_at(lines, 1)
    yield "file", about
    about, is_first = None, False
    while at < len(lines):
        stripped = lines[at].strip()
        if stripped.startswith(("//", "/*")):
            about, at = comment_at(lines, at)
            is_first = True
        elif PLAIN.match(stripped):
            if is_first and not stripped:
                yield "section", about
                is_first = False
            about = about if stripped else None
            yield "line", lines[at]
            at += 1
        else:
            declaration, at = declaration_at(lines, at)
            if SILENT.match(declaration.strip()):
                continue
            has_own = COMMENT_BEHIND.match(declaration) or (stripped.startswith("~") and not is_first)
            yield "declaration", declaration, None if has_own else about
            is_first = False
            about = None if declaration.endswith("{") else about
