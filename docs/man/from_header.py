#!/usr/bin/env python3
"""Converts a public header into a manual page in scdoc format.

  from_header.py page HEADER VERSION   writes the page
  from_header.py names HEADER          writes the names that the page describes, one per line

The comments of the header are the only description of the interface. The first comment becomes the description, all
others stay with their declarations. Indented lines in a comment are a table.
"""
import os
import re
import sys

# A comment, or a declaration up to the line that ends it.
DEFINE = r"#define [A-Z]\w*[^\n]*?(?= */\*|\n)"
TOKEN = re.compile(rf"/\*.*?\*/|{DEFINE}|(?:typedef|QIVEN_API|struct)\b.*?;(?=\s*(?:/\*\*<|\n))", re.S)
COMPOUND = re.compile(r"typedef struct \w+ \{.*?^\} \w+;", re.S | re.M)


def plain(text):
    """Escapes text for scdoc, with functions and references to other pages in bold."""
    text = re.sub(r"([\\*_])", r"\\\1", text)
    text = re.sub(r"([\w\\]+)\((3?)\)(?![\w(])", r"*\1*(\2)", text)
    return re.sub(r"\bqiven/(\w+)\.h\b", r"*qiven_\1*(3)", text)


def body(comment):
    """The lines of a comment without the comment marks."""
    lines = [re.sub(r"^\s*\*( |$)", "", line) for line in re.sub(r"^/\*\*?<?|\*/$", "", comment).splitlines()]
    return "\n".join(line.rstrip() for line in lines).strip("\n")


def paragraphs(text):
    """Yields paragraphs of text, and blocks of indented lines, which are not reformatted."""
    for block in re.split(r"\n\s*\n", text):
        if block.startswith("  "):
            yield "```\n" + block + "\n```\n"
        elif block.strip():
            yield plain(" ".join(block.split())) + "\n"


def contract(comment):
    """Formats a documentation comment: its text, then one line for each parameter and one for the result."""
    text = re.sub(r"\s*@(name|[{}]).*", "", body(comment))
    parts = re.split(r"\s*@(param|return)\s+", " " + text)
    yield from paragraphs(parts[0].strip())
    for kind, value in zip(parts[1::2], parts[2::2]):
        name, rest = value.split(None, 1) if kind == "param" else ("Returns", value)
        yield f"*{name}*\n\t{plain(' '.join(rest.split()))}\n" if kind == "param" else \
            f"Returns {plain(' '.join(rest.split()))}\n"


def tidy(declaration):
    """A declaration as a caller sees it."""
    declaration = re.sub(r"\bQIVEN_API (extern )?|\s*QIVEN_PRINTF\(.*?\)(?=;)", "", declaration)
    return re.sub(r"/\*\*<? *(.*?) *\*/", r"/* \1 */", declaration)


def name_of(declaration):
    for pattern in (r"^#define (\w+)", r"\(\*(\w+)\)", r"\} (\w+);$", r"(\w+)\(", r"(\w+)(?:\[\w*\])?;"):
        if found := re.search(pattern, declaration):
            return found[1]
    return ""


def tokens(text):
    """Yields (comment or declaration, whether a blank line precedes it). A structure with its members is one declaration."""
    text = text[text.index("#define QIVEN_") :].split("\n", 1)[1]
    text = re.sub(r"#if.*?#endif\n", "", text[: text.rindex("#ifdef __cplusplus")], flags=re.S)
    at = 0
    while found := TOKEN.search(text, at):
        if compound := COMPOUND.match(text, found.start()):
            found = compound
        after_blank, at = "\n\n" in text[at : found.start()], found.end()
        trailing = re.compile(r" *(/\*\*<.*?\*/)", re.S).match(text, at)
        at = trailing.end() if trailing else at
        yield found[0] + ("  " + trailing[1] if trailing else ""), after_blank


def sections(text):
    """Returns (comment, declarations) pairs. A declaration without a comment belongs to the preceding declarations if no
    blank line separates them."""
    result = []
    for token, after_blank in tokens(text):
        if token.startswith("/*"):
            result.append((token, []))
        elif result and not (after_blank and result[-1][1]):
            result[-1][1].append(tidy(token))
        else:
            result.append(("", [tidy(token)]))
    return [(comment, declarations) for comment, declarations in result if comment or declarations]


def names(text):
    exported = re.findall(r"^QIVEN_API [^;]*;", text, re.M)
    return [name_of(tidy(declaration)) for declaration in exported]


def page(path, text, version):
    family = os.path.basename(path).removesuffix(".h")
    top = body(re.match(r"/\*.*?\*/", text, re.S)[0])
    title, _, rest = top.partition("\n\n")
    about = " ".join(title.split()).split(" - ", 1)[1].split(". ")
    yield f'qiven_{family}(3) "qiven {version}" "libqiven"\n\n# NAME\n'
    yield plain(", ".join([f"qiven_{family}", *names(text)])) + " - " + plain(about[0].rstrip(".")) + "\n"
    libraries = "-lqiven-watch -lqiven" if family == "watch" else "-lqiven"
    yield f"# SYNOPSIS\n\n*#include <qiven/{family}.h>*\n\nLink with *{libraries}*.\n\n# DESCRIPTION\n"
    yield from paragraphs(". ".join(about[1:]).strip())
    yield from paragraphs(rest)
    for comment, declarations in sections(text):
        if not comment.startswith("/**"):
            yield from paragraphs(body(comment))
        if declarations:
            exported = [name_of(d) for d in declarations if name_of(d) in names(text)]
            heading = exported or [name_of(d) for d in declarations]
            if comment.startswith("/**"):
                yield "## " + ", ".join(heading) + "\n"
            yield "```\n" + "\n".join(declarations) + "\n```\n"
        if comment.startswith("/**"):
            yield from contract(comment)
    others = ["log", "packet", "nasinfo", "iface", "keys", "udp", "search", "matrix", "watch"]
    yield "# SEE ALSO\n\n" + ", ".join(["*libqiven*(3)"] + [f"*qiven_{o}*(3)" for o in others if o != family])


def main():
    what, path = sys.argv[1:3]
    with open(path, encoding="ascii") as header:
        text = header.read()
    print("\n".join(names(text) if what == "names" else page(path, text, sys.argv[3])))


main()
