#!/usr/bin/env python3
"""Writes docs/interface.md from include/vsccam.h: a heading for each function, tables for constants.

With --check it writes nothing and fails when the page does not say what the header does.
"""
import re
import sys
from pathlib import Path

HERE = Path(__file__).parent
HEADER = HERE.parent / "include/vsccam.h"
PAGE = HERE / "interface.md"


def bare(comment):
    """The text of a comment without its frame of stars."""
    body = re.sub(r"^/\*\*?|\*/$", "", comment.strip())
    lines = [re.sub(r"^ *\* ?", "", line) for line in body.splitlines()]
    return "\n".join(line[1:] if line.startswith(" ") else line for line in lines).strip()


class Page:
    def __init__(self, header):
        self.header = header
        self.functions = re.findall(r"^VSC_API [^(]*?(\w+)\(", header, re.M)
        constants = re.findall(r"\b((?:CONTROL|VSC_IMG|VSC_EXP|GUIDE)_\w+)\b", header)
        types = ["Control_TYPE", "VSC_BOOL", "GuideD", "_VSC_ID", "NULL", "VSCCAM_CAMERA",
                 "VSCCAM_FIRMWARE_DIR"]
        self.words = re.compile(r"\b(%s)\b" % "|".join(self.functions + types + constants))

    def linked(self, text, own=""):
        """Text in which functions lead to their headings and other names stand out."""
        def link(match):
            name = match[1]
            if name in self.functions and name != own:
                return f"[`{name}`](#{name.lower()})"
            return f"`{name}`"
        return self.words.sub(link, text.replace("*id", "`*id`").replace("<VSC", "\\<VSC"))

    def prose(self, text, own=""):
        """Paragraphs and lists; indented lines outside of a list keep their columns."""
        out, kind = [], "text"
        for line in text.splitlines():
            before = kind
            if line.startswith("- "):
                kind = "list"
            elif not line.startswith("  "):
                kind = "text"
            elif before == "text":
                kind = "code"
            if kind != before:
                out.append("")
            out.append("  " + line if kind == "code" else self.linked(line.rstrip(), own))
        return re.sub(r"\n{3,}", "\n\n", "\n".join(out))

    def table(self, heading, rows):
        return "\n".join([heading, "|" + "---|" * (heading.count("|") - 1)] + rows)

    def constants(self, body):
        """Rows of name, value and meaning of an enumeration."""
        rows = []
        for name, value, comment in re.findall(r"(\w+) = (\d+),?\s*(/\*\*<.*?\*/)?", body, re.S):
            meaning = " ".join(bare(comment.replace("<", "", 1)).split())
            rows.append([f"`{name}`", value, self.linked(meaning)])
        shown = 3 if any(row[2] for row in rows) else 2
        return self.table("| " + " | ".join(["Name", "Value", "Meaning"][:shown]) + " |",
                          ["| " + " | ".join(row[:shown]) + " |" for row in rows])

    def types(self):
        declaration = re.compile(
            r"(?P<doc>/\*\*[^<](?:(?!\*/).)*\*/)\n"
            r"(?P<code>(?:typedef [^{;]*;\n)?(?:enum(?: (?P<enum>\w+))? \{(?P<body>.*?)\};"
            r"|typedef struct .*?;\n\} \w+;)?)", re.S)
        out = ["## Types and constants"]
        for match in declaration.finditer(self.header.split("/* ----")[0]):
            code = match["code"].strip()
            if not code:
                continue
            name = match["enum"] or re.findall(r"(\w+);", code.split("enum")[0])[-1]
            out.append(f"### {name}\n\n{self.linked(bare(match['doc']), name)}")
            kept = re.sub(r"enum.*", "", code, flags=re.S).strip()
            if kept:
                out.append(f"```c\n{kept}\n```")
            if match["body"]:
                out.append(self.constants(match["body"]))
        return out

    def function(self, doc, declaration):
        name = re.search(r"(\w+)\(", declaration)[1]
        text, *tags = re.split(r"^@(?=param|return|note)", bare(doc), flags=re.M)
        prototype = re.sub(r"\s+", " ", declaration.replace("VSC_API ", ""))
        out = [f"### {name}", f"```c\n{prototype}\n```"]
        if text.strip():
            out.append(self.prose(text.strip(), name))
        arguments, notes = [], []
        for tag in tags:
            kind, rest = tag.split(maxsplit=1)
            if kind == "param":
                argument, meaning = re.match(r"(\w+(?:, \w+)*)\s+(.*)", rest, re.S).groups()
                arguments.append(f"| `{argument}` | {self.linked(' '.join(meaning.split()), name)} |")
            else:
                rest = self.linked(" ".join(rest.split()), name)
                notes.append(f"- Returns {rest}" if kind == "return" else f"- {rest}")
        if arguments:
            out.append(self.table("| Argument | |", arguments))
        if notes:
            out.append("\n".join(notes))
        return out

    def groups(self):
        """Pairs of a group's title and its pairs of docstring and declaration."""
        parts = re.split(r"/\* ---- (.*?) ---- \*/", self.header)
        for title, body in zip(parts[1::2], parts[2::2]):
            yield title.capitalize(), re.findall(
                r"(/\*\*(?:(?!\*/).)*\*/)\n(VSC_API [^;]*;)", body, re.S)

    def text(self):
        contents, groups = [], []
        documented = 0
        for title, functions in self.groups():
            names = [re.search(r"(\w+)\(", declaration)[1] for _, declaration in functions]
            documented += len(names)
            contents.append(f"| {title} | {' '.join(f'[{n}](#{n.lower()})' for n in names)} |")
            groups.append(f"## {title}")
            for doc, declaration in functions:
                groups += self.function(doc, declaration)
        if documented != len(self.functions):
            sys.exit(f"{HEADER}: a function has no comment, or stands in no group")
        intro = bare(re.match(r"/\*.*?\*/", self.header, re.S)[0]).split("\n\n", 1)[1]
        return "\n\n".join(
            ["# The C interface",
             "`./dev docs` writes this page from `include/vsccam.h`; change it there.",
             self.table("| | Functions |", contents), "## In general", self.prose(intro),
             *self.types(), *groups]) + "\n"


page = Page(HEADER.read_text()).text()
if sys.argv[1:] == ["--check"]:
    if not PAGE.exists() or PAGE.read_text() != page:
        sys.exit(f"{PAGE.name} does not say what {HEADER.name} does: run ./dev docs")
else:
    PAGE.write_text(page)
