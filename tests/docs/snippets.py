#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Every code snippet of the README, the guides and the manual pages does what it says.

  snippets.py SOURCE BUILD TARNUTIL CXX CC     TARNUTIL is the built command

A snippet is a fenced or indented block of the README or a guide, or what stands between .nf and .fi in
a manual page of section 1 or 7. (The pages of section 3 are made of the headers: of them, the synopses
are compiled.) What happens to it:

  a session, "$ command"     the command prints what stands below it
  sh                         each command succeeds, in a folder with materials
  c, cpp with a main         is compiled and run
  anything else              has a mark in the line above, a comment <!-- snippet: ... --> or .\\" snippet: ...

The marks:

  in NAME            is compiled and run inside of contexts/NAME, in place of the next "snippet" comment there
  file NAME          as without a mark; later snippets find it as a file of that name
  from PATH          is a part, word for word, of a program that the tests run
  shell [STATUS...]  is sh; the commands exit with these statuses
  cipher strings     the command takes the first word of each line, or refuses it where the text says "fails"
  plaintext PATH     hexadecimal bytes are the plaintext of that token
  text REASON        is no code, or cannot be run here
"""

import base64
import collections
import concurrent.futures
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import typing

SOURCE, BUILD, TARNUTIL, CXX, CC = (pathlib.Path(argument) for argument in sys.argv[1:])
HERE = SOURCE / "tests/docs"
MARK = re.compile(r"(?:<!--|\.\\\") snippet: (.*?)(?: -->)?$")
PLACE = re.compile(r"^.*\bsnippet \*/\n|^# snippet\n", re.MULTILINE)
STRICT = ["-Wall", "-Wextra", "-Wpedantic", "-Werror", "-O0"]
COMPILERS = {".c": [CC, "-std=c99", *STRICT], ".cpp": [CXX, "-std=c++11", *STRICT]}


class Snippet(typing.NamedTuple):
    where: str
    language: str
    mark: str
    text: str


class Failure(Exception):
    pass


# --- Finding them --------------------------------------------------------------------------------


def of_guide(path):
    """The fenced and the indented blocks of a Markdown file."""
    lines = path.read_text(encoding="utf-8").splitlines()
    at = 0
    while at < len(lines):
        fence = re.match(r"```(\w*)$", lines[at])
        indented = lines[at].startswith("    ") and (at == 0 or not lines[at - 1] or MARK.match(lines[at - 1]))
        start, at = at, at + 1
        if fence:
            while lines[at] != "```":
                at += 1
            body = lines[start + 1 : at]
            at += 1
        elif indented:
            while at < len(lines) and (lines[at].startswith("    ") or not lines[at]):
                at += 1
            body = [line[4:] for line in lines[start:at]]
        else:
            continue
        above = next((line for line in reversed(lines[:start]) if line), "")
        mark = MARK.match(above)
        text = "\n".join(body).rstrip("\n") + "\n"
        where = f"{path.relative_to(SOURCE)}:{start + 1}"
        yield Snippet(where, fence[1] if fence else "", mark[1] if mark else "", text)


def of_manual(path):
    """What stands between .nf and .fi in a manual page."""
    page = path.read_text(encoding="utf-8")
    for block in re.finditer(r"^(?:(\.\\\" snippet: .*)\n)?\.nf\n(.*?)^\.fi$", page, re.MULTILINE | re.DOTALL):
        text = re.sub(r"\\&", "", block[2]).replace("\\-", "-").replace("\\e", "\\")
        line = page.count("\n", 0, block.start()) + 1
        yield Snippet(f"{path.relative_to(SOURCE)}:{line}", "", MARK.match(block[1])[1] if block[1] else "", text)


def snippets():
    for path in [SOURCE / "README.md", *sorted((SOURCE / "docs").glob("*.md"))]:
        yield from of_guide(path)
    for path in sorted((SOURCE / "docs/man").glob("*.[17]")):
        yield from of_manual(path)


def synopses():
    """A program of what the pages of section 3 say to include."""
    found = [re.search(r"^\.B (#include <.*>)$", page.read_text(encoding="utf-8"), re.MULTILINE)[1]
             for page in sorted((SOURCE / "docs/man").glob("*.3"))]
    return Snippet("docs/man/*.3", "cpp", "", "\n".join([*found, "int main() {}", ""])), len(found)


# --- Running them --------------------------------------------------------------------------------


class Workshop:
    """A folder with materials, in which snippets run."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.root = self.folder / "root"  # what the README's own commands install into
        self.env = {**os.environ, "LC_ALL": "C.UTF-8", "DESTDIR": str(self.root), "CXX": str(CXX), "CC": str(CC),
                    "CMAKE_GENERATOR": "Ninja", "CMAKE_CXX_COMPILER_LAUNCHER": str(self.folder / "bin/fast"),
                    "PATH": f"{self.folder}/bin:{TARNUTIL.parent}:{os.environ['PATH']}"}
        self.put_tools()
        self.put_materials()

    def put_tools(self):
        """Commands in front of the system's: they do the same, in here."""
        (self.folder / "bin").mkdir()
        for name, text in {
            "fast": 'exec "$@" -O0 -w',  # a compiler in a hurry
            "c++": f'exec {CXX} "$@"',
            "pkg-config": f'PKG_CONFIG_PATH=$(dirname "$(find {self.root} -name libtarnutil.pc)") '
                          f'exec {shutil.which("pkg-config")} --define-variable=prefix={self.root}/usr/local "$@"',
            "../dev": f'{SOURCE}/dev | grep -q "^  $1 " || {{ echo "./dev has no word $1"; exit 1; }}',
        }.items():
            path = self.folder / "bin" / name
            path.write_text(f"#!/bin/sh\n{text}\n")
            path.chmod(0o755)

    def put_materials(self):
        for name in ("CMakeLists.txt", "cmake", "docs", "include", "suppressions", "util", "LICENSE", "README.md"):
            (self.folder / name).symlink_to(SOURCE / name)
        shutil.copy(BUILD / "tests/certs/material/chain.pem", self.folder / "server.pem")
        shutil.copy(SOURCE / "tests/tokens/2048.pem", self.folder / "issuer.pem")
        self.run(["openssl", "pkey", "-in", "issuer.pem", "-pubout", "-out", "issuer.pub"])

    def run(self, command, status=0, **options):
        done = subprocess.run(command, cwd=self.folder, env={**self.env, **options}, text=True, check=False,
                              timeout=300, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if done.returncode != status:
            raise Failure(f"exit status {done.returncode} of {' '.join(map(str, command))}\n{done.stdout}")
        return done.stdout

    def shell(self, command, status=0):
        return self.run(["bash", "-o", "pipefail", "-c", command], status)

    def compile_and_run(self, name, suffix, text):
        source = self.folder / f"{name}{suffix}"
        program = source.with_suffix("")
        source.write_text(text, encoding="utf-8")
        self.run([*COMPILERS[suffix], f"-I{SOURCE}/include", "-DOPENSSL_API_COMPAT=0x10002000L", source, "-o", program,
                  f"-L{BUILD}", "-ltarnutil", "-lssl", "-lcrypto", f"-Wl,-rpath,{BUILD}"])
        self.run([program])

    def run_cmake_project(self, name, text):
        project = self.folder / f"{name}.project"
        project.mkdir()
        (project / "CMakeLists.txt").write_text(text, encoding="utf-8")
        shutil.copy(self.folder / "server.cpp", project)
        self.run(["cmake", "-S", project, "-B", project / "build", f"-DCMAKE_PREFIX_PATH={self.root}/usr/local"])
        self.run(["cmake", "--build", project / "build"])
        self.run([project / "build/server"])


def commands(text):
    """The commands of a piece of shell, each with the lines that it continues on."""
    return re.findall(r"^\S(?:.*\\\n)*.*", text, re.MULTILINE)


def run_shell(shop, text, statuses=()):
    todo = commands(text)
    expected = list(map(int, statuses)) or [0] * len(todo)
    if len(expected) != len(todo):
        raise Failure(f"{len(todo)} commands, {len(expected)} statuses")
    for command, status in zip(todo, expected):
        shop.shell(command, status)
        program = re.search(r" -o (\w+)$", command)
        if program:
            lib = next(shop.root.rglob("libtarnutil.so")).parent
            shop.run([shop.folder / program[1]], LD_LIBRARY_PATH=str(lib))


def run_session(shop, text):
    for command, expected in re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", text, re.MULTILINE):
        refused = expected.startswith("tarnutil: ")
        said = "\n".join(line.rstrip() for line in shop.shell(command, int(refused)).splitlines())
        if said != "\n".join(line.rstrip() for line in expected.splitlines()):
            raise Failure(f"{command} prints\n{said}")


def check_cipher_strings(shop, text):
    for line in text.splitlines():
        string, about = re.match(r"(.*?\S)(?: {2,}(.*))?$", line).groups("")
        shop.run([TARNUTIL, "ciphers", string], status=int(about.startswith("fails")))


def check_plaintext(shop, text, token):
    pairs = [re.match(r"(?:[0-9a-f]{2} {1,2})*(?:[0-9a-f]{2}$)?", line)[0] for line in text.splitlines()]
    told = bytes.fromhex("".join(pairs))
    block = base64.b64decode((SOURCE / token).read_text())
    (shop.folder / "block").write_bytes(block)
    key = (SOURCE / token).with_name(pathlib.Path(token).name.split(".")[0] + ".pem")
    shop.run(["openssl", "pkeyutl", "-verifyrecover", "-inkey", key, "-in", "block", "-out", "plaintext"])
    if (shop.folder / "plaintext").read_bytes() != told:
        raise Failure(f"the plaintext of {token} is {(shop.folder / 'plaintext').read_bytes().hex(' ')}")


def check_part(text, path):
    if text not in (SOURCE / path).read_text(encoding="utf-8"):
        raise Failure(f"is no part of {path}")


def run_program(shop, text, name):
    path = pathlib.Path(name)
    if path.suffix == ".cmake":
        shop.run_cmake_project(path.stem, text)
    else:
        shop.compile_and_run(path.stem, path.suffix, text)


def run_in_context(shop, name, parts):
    """Runs a context with all its snippets in their places."""
    context = (HERE / "contexts" / name).read_text(encoding="utf-8")
    if len(PLACE.findall(context)) != len(parts):
        raise Failure(f"contexts/{name} has {len(PLACE.findall(context))} places for {len(parts)} snippets")
    rest = iter(parts)
    run_program(shop, PLACE.sub(lambda _: next(rest), context), name)


# --- Judging them --------------------------------------------------------------------------------

# For each mark: what is done to the snippet, and the function that does it.
MARKED = {
    "cipher": ("run", lambda shop, text, _: check_cipher_strings(shop, text)),
    "file": ("compiled and run", run_program),
    "from": ("part of a program", lambda _, text, path: check_part(text, path)),
    "plaintext": ("checked", check_plaintext),
    "shell": ("run", lambda shop, text, statuses: run_shell(shop, text, statuses.split())),
    "text": ("listed", lambda *_: None),
}


class Step(typing.NamedTuple):
    kind: str
    snippet: Snippet
    action: typing.Callable[[Workshop], None]


def refuse(_):
    raise Failure("is of no kind that can be run, and has no mark that says what it is")


def step(snippet, found):
    """What is to be done to a snippet, one of `found`."""
    word, _, rest = snippet.mark.partition(" ")
    text = snippet.text
    if word == "in":
        parts = [other.text for other in found if other.mark == snippet.mark]
        in_first = next(other for other in found if other.mark == snippet.mark) is snippet
        return Step("compiled and run", snippet, lambda shop: in_first and run_in_context(shop, rest, parts))
    if word in MARKED and rest or word == "shell":
        kind, action = MARKED[word]
        return Step(kind, snippet, lambda shop: action(shop, text, rest))
    if snippet.mark:
        return Step("unknown", snippet, refuse)
    if text.startswith("$ "):
        return Step("run", snippet, lambda shop: run_session(shop, text))
    if snippet.language == "sh":
        return Step("run", snippet, lambda shop: run_shell(shop, text))
    if snippet.language in ("c", "cpp") and "int main(" in text:
        name = re.sub(r"\W", "_", snippet.where) + f".{snippet.language}"
        return Step("compiled and run", snippet, lambda shop: run_program(shop, text, name))
    return Step("unknown", snippet, refuse)


def failure_of(todo, shop):
    """What is wrong with a snippet, or None."""
    try:
        todo.action(shop)
        return None
    except (Failure, OSError, ValueError, subprocess.SubprocessError) as failure:
        return f"{todo.snippet.where}: {failure}"


def unused_contexts(found):
    marks = {snippet.mark for snippet in found}
    return [f"contexts/{path.name}: no snippet is in it" for path in sorted((HERE / "contexts").iterdir())
            if f"in {path.name}" not in marks]


# Each has to be found wrong; a judge that lets one pass is none.
WRONG = [
    Snippet("a text of no kind", "", "", "some text\n"),
    Snippet("a text without a reason", "", "text", "some text\n"),
    Snippet("a mark that nobody knows", "sh", "maybe", "true\n"),
    Snippet("a session that says something else", "", "", "$ tarnutil ip show ::1\n::2\n"),
    Snippet("a command that fails", "sh", "", "true\nfalse\n"),
    Snippet("a command that succeeds", "", "shell 0 1", "true\ntrue\n"),
    Snippet("a status too few", "", "shell 0", "true\ntrue\n"),
    Snippet("a word that ./dev does not have", "sh", "", "./dev everything\n"),
    Snippet("a program that fails", "c", "", "int main(void) { return 1; }\n"),
    Snippet("a program with a warning", "c", "", "int main(void) { int unused; return 0; }\n"),
    Snippet("a fragment by itself", "c", "", "eb_set(eb, 5);\n"),
    Snippet("a context without that many places", "c", "in bitmap_state.c", "eb_set(eb, 5);\n"),
    Snippet("no part of the example", "c", "from examples/cipher_scratch.c", "int no_such_function;\n"),
    Snippet("a cipher string that is none", "", "cipher strings", "aes,  good\naes,,  good\n"),
    Snippet("a cipher string that is good", "", "cipher strings", "aes  fails\n"),
    Snippet("another plaintext", "", "plaintext tests/tokens/2048.one.token", "e8 03 00 01\n"),
]


def main():
    found = list(snippets())
    synopsis, pages = synopses()
    todo = [step(snippet, found) for snippet in [*found, synopsis]]
    # The README's snippets need each other, and what its last one installs.
    of_readme = [one for one in todo if one.snippet.where.startswith("README")]
    of_readme.sort(key=lambda one: "cmake --install" not in one.snippet.text)
    rest = [one for one in todo if one not in of_readme]
    with tempfile.TemporaryDirectory() as folder, concurrent.futures.ThreadPoolExecutor(2) as pool:
        shop = Workshop(folder)
        failures = [failure_of(one, shop) for one in of_readme]
        failures += pool.map(lambda one: failure_of(one, shop), rest)
        # As if each came twice: a context has a place for one.
        failures += [None if failure_of(step(wrong, [wrong, wrong]), shop) else f"{wrong.where}: passed"
                     for wrong in WRONG]
    failures = [*filter(None, failures), *unused_contexts(found)]
    if failures:
        sys.exit("\n".join(failures))
    counts = collections.Counter(one.kind for one in todo)
    said = ", ".join(f"{count} {kind}" for kind, count in sorted(counts.items()))
    print(f"{len(found)} snippets and {pages} synopses: {said}")


if __name__ == "__main__":
    main()
