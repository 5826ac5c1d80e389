#!/usr/bin/env python3
"""Prepares and checks the site that ./dev docs builds with Doxygen: the order of the pages, and the links from pages to source files.

site.py            prints Doxygen's settings for the pages, and writes the layout and a page for each source file that a page links to
site.py FILE       Doxygen's filter: prints a page with its relative links changed to links of the site, or a header with each table row
                   in its comments joined into one line
site.py --check    fails if a link in the finished site has no target
"""

import html
import re
import sys
from pathlib import Path
from urllib.parse import unquote

ROOT = Path(__file__).resolve().parent.parent
OUT = ROOT / "build/docs"
ORDER = "concepts providers contexts futures connectors threads-and-locks failures logging linking performance design".split()
# A link to this folder leads to the list of classes.
HEADERS = ROOT / "connector"

REFERENCE = [("classlist", "Classes"), ("namespacelist", "Namespaces and functions"), ("hierarchy", "Hierarchy"), ("filelist", "Headers")]
# The detailed description comes first, then the list of operations, then their documentation.
CLASS_PAGE = """<class>
<includes/><detaileddescription title=""/><inheritancegraph/>
<memberdecl>
<membergroups/><nestedclasses title=""/><publictypes title=""/><publicmethods title=""/><publicstaticmethods title=""/>
<publicattributes title=""/><protectedmethods title=""/>
</memberdecl>
<memberdef>
<inlineclasses title=""/><typedefs title=""/><enums title=""/><constructors title=""/><functions title=""/><variables title=""/>
</memberdef>
</class>"""


def guide():
    """All existing pages in reading order. Pages of docs/ that aren't in ORDER come after it."""
    found = {page.stem: page for page in sorted((ROOT / "docs").glob("*.md"))}
    ordered = [found.pop(name) for name in ORDER if name in found]
    own = [ROOT / name for name in ("CONTRIBUTING.md", "SECURITY.md", "CHANGELOG.md")]
    pages = [ROOT / "README.md", *ordered, *found.values(), *own]
    return [page for page in pages if page.exists()]


PAGES = guide()


def label(page, heading=""):
    """The label of a page or of a heading in it, formed as the usual renderers of Markdown form it."""
    name = "mainpage" if page.name == "README.md" else page.stem.lower()
    slug = re.sub(r"[^\w\- ]", "", heading.lower()).strip().replace(" ", "-")
    return f"{name}_{slug}" if slug else name


def source_label(path):
    return "source_" + re.sub(r"\W", "_", str(path.relative_to(ROOT)))


def title(page):
    return next(line[2:].strip() for line in page.read_text().splitlines() if line.startswith("# "))


LINK = re.compile(r"(!?)\[((?:[^\[\]]|\[[^\]]*\])*)\]\((?!https?:|mailto:)([^()#\s]*)(?:#([^()\s]*))?\)")


def leads_to(page, match):
    return (page.parent / match.group(3)).resolve() if match.group(3) else page


def rewritten(page, match):
    image, text, _, anchor = match.groups()
    path = leads_to(page, match)
    if not path.exists():
        return match.group()  # Doxygen or check() reports it
    if image:  # an image that Doxygen inserts doesn't shrink with the page
        return f'@htmlonly<div class="image"><img src="{path.name}" alt="{html.escape(text)}"/></div>@endhtmlonly'
    if path == HEADERS:
        target = "annotated.html"
    elif path in PAGES:
        target = ("index" if path.name == "README.md" else label(path)) + ".html" + (f"#{label(path, anchor)}" if anchor else "")
    else:
        target = source_label(path) + ".html"
    return f"[{text}]({target})"


def show_page(page):
    fenced, first = False, True
    for line in LINK.sub(lambda match: rewritten(page, match), page.read_text()).splitlines():
        fenced ^= line.lstrip().startswith("```")
        heading = re.match(r"#+ (.*)", line)
        if heading and not fenced:
            line += " {#" + label(page, "" if first else heading.group(1)) + "}"
            first = False
        print(line)


def show_header(header):
    """A row whose first cell is blank continues the row above. Blank lines after the table keep the line numbers."""
    rows, lost = [], 0
    for line in [*header.read_text().splitlines(), ""]:
        row = re.match(r"\s*/// \|(.*)\|$", line)
        if not row:
            for cells in rows:
                print("/// |", " | ".join(cells), "|")
            print("///\n" * lost + line)
            rows, lost = [], 0
            continue
        cells = [cell.strip() for cell in row.group(1).split("|")]
        if cells[0] or not rows:
            rows.append(cells)
        else:
            rows[-1] = [f"{above} {cell}".strip() for above, cell in zip(rows[-1], cells)]
            lost += 1


def files(folder):
    return [path for path in sorted(folder.rglob("*")) if path.is_file()]


def linked_sources():
    found = set()
    for page in PAGES:
        for match in LINK.finditer(page.read_text()):
            path = leads_to(page, match)
            if not match.group(1) and path.exists() and path not in PAGES and path != HEADERS:
                found.update([path, *(files(path) if path.is_dir() else [])])
    return sorted(found)


def write_sources():
    with open(OUT / "sources.dox", "w") as out:
        for path in linked_sources():
            name = path.relative_to(ROOT)
            out.write(f"/** @page {source_label(path)} {name}\n")
            if path.is_dir():
                out.writelines(f'- @ref {source_label(file)} "{file.relative_to(path)}"\n' for file in files(path))
            else:
                out.write(f"@{'include' if path.suffix in ('.cpp', '.h') else 'verbinclude'} {name}\n")
            out.write("*/\n")


def write_layout():
    tabs = ['<tab type="mainpage" title=""/>']
    tabs += [f'<tab type="user" url="@ref {label(page)}" title="{html.escape(title(page))}"/>' for page in PAGES[1:]]
    tabs += [f'<tab type="{kind}" title="{name}"/>' for kind, name in REFERENCE]
    navigation = "<navindex>" + "\n".join(tabs) + "</navindex>"
    (OUT / "layout.xml").write_text(f'<doxygenlayout version="1.0">\n{navigation}\n{CLASS_PAGE}\n</doxygenlayout>\n')


def check():
    site = OUT / "html"
    pages = {page.name: page.read_text(errors="replace") for page in site.glob("*.html")}
    anchors = {name: set(re.findall(r'(?:id|name)="([^"]+)"', text)) for name, text in pages.items()}
    broken = set()
    for name, text in pages.items():
        for link in re.findall(r'(?:href|src|data)="(?!\w+:)([^"]*)"', text):
            file, _, anchor = unquote(html.unescape(link)).partition("#")
            file = file or name
            if not (site / file).exists() or (anchor and file in pages and anchor not in anchors[file]):
                broken.add(f"{name}: {link} has no target")
    sys.exit("\n".join(sorted(broken)) or None)


if sys.argv[1:] == ["--check"]:
    check()
elif sys.argv[1:]:
    file = Path(sys.argv[1]).resolve()
    show_page(file) if file.suffix == ".md" else show_header(file)
else:
    write_sources()
    write_layout()
    print("INPUT +=", *(f'"{page.relative_to(ROOT)}"' for page in PAGES), "build/docs/sources.dox")
    print("HTML_EXTRA_FILES =", *(picture.relative_to(ROOT) for picture in sorted((ROOT / "docs").rglob("*.svg"))))
