# What the sources and the documents refer to exists: the headings of docs/compatibility.md that comments name, and the files and
# headings that links of the documents point to. The checks themselves are tried on texts that they must refuse.
import re
import sys
import tempfile
import unittest
from pathlib import Path

root = Path(sys.argv.pop(1))

COMMENTED = {".c", ".cpp", ".h", ".hpp", ".cmake", ".py", ".supp", ".txt"}
FOLDERS = ["bench", "cmake", "docs", "examples", "models", "python", "scripts", "src", "tests", "training"]
DOCUMENT = "docs/compatibility.md"

NAMED = re.compile(r'((?:"[^"]+"(?:, | and )?)+) in ' + re.escape(DOCUMENT))
LINK = re.compile(r"(?<!\\)\[[^\]]*\]\(([^)\s]+)\)|<(?:img|a)\b[^>]*(?:src|href)=\"([^\"]+)\"")
FENCE = re.compile(r"^```.*?^```[^\n]*$", re.MULTILINE | re.DOTALL)


# The headings of a document, as the names of the places that links lead to.
def anchors(text):
    found = {}
    for heading in headings(text):
        base = re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
        found[base] = found.get(base, -1) + 1
    return {base if i == 0 else f"{base}-{i}" for base, last in found.items() for i in range(last + 1)}


def headings(text):
    return [line.lstrip("#").strip() for line in FENCE.sub("", text).split("\n") if re.match(r"#{1,6} ", line)]


# A text whose comments run on over their lines.
def joined(text):
    return re.sub(r"\s*\n[ \t]*(?://+|\*(?!/)|#)?[ \t]*", " ", text)


# The faults of a source: headings that do not exist, and mentions of the document that name none.
def wrong_names(text, known):
    text = joined(text)
    faults = [name for run in NAMED.findall(text) for name in re.findall(r'"([^"]+)"', run) if name not in known]
    bare = text.count(DOCUMENT) - len(NAMED.findall(text))
    return faults + ["no heading"] * bare


# The links of a document that lead to no file or no heading. Links to other machines are left alone.
def wrong_links(path):
    faults = []
    for pair in LINK.findall(FENCE.sub("", path.read_text(encoding="utf-8"))):
        link = pair[0] or pair[1]
        if re.match(r"[a-z]+:", link):
            continue
        name, _, anchor = link.partition("#")
        target = path.parent / name if name else path
        if not target.exists():
            faults.append(link)
        elif anchor and anchor not in anchors(target.read_text(encoding="utf-8")):
            faults.append(link)
    return faults


def sources():
    for folder in FOLDERS:
        for path in sorted((root / folder).rglob("*")):
            if path.suffix in COMMENTED and path.is_file() and path != Path(__file__).resolve():
                yield path


class References(unittest.TestCase):
    def test_headings_that_sources_name_exist(self):
        known = set(headings((root / DOCUMENT).read_text(encoding="utf-8")))
        names = 0
        for path in sources():
            text = path.read_text(encoding="utf-8", errors="replace")
            with self.subTest(path=str(path.relative_to(root))):
                self.assertEqual(wrong_names(text, known), [])
            names += len(NAMED.findall(joined(text)))
        self.assertGreater(names, 30)

    def test_headings_are_unique(self):
        named = headings((root / DOCUMENT).read_text(encoding="utf-8"))
        self.assertEqual(sorted(named), sorted(set(named)))

    def test_links_lead_somewhere(self):
        documents = sorted(root.glob("*.md")) + sorted((root / "docs").rglob("*.md"))
        self.assertIn(root / "README.md", documents)
        for path in documents:
            with self.subTest(path=str(path.relative_to(root))):
                self.assertEqual(wrong_links(path), [])


class Checks(unittest.TestCase):
    def test_names(self):
        known = {"Dark borders", "Even kernels"}
        self.assertEqual(wrong_names('// see "Dark\n// borders" in docs/compatibility.md', known), [])
        self.assertEqual(wrong_names(' * "Dark borders" and "Even kernels" in\n * docs/compatibility.md', known), [])
        self.assertEqual(wrong_names('# "Dark border" in docs/compatibility.md', known), ["Dark border"])
        self.assertEqual(wrong_names('// "Dark borders" and "Odd\n// kernels" in docs/compatibility.md', known), ["Odd kernels"])
        self.assertEqual(wrong_names("// as docs/compatibility.md says", known), ["no heading"])

    def test_links(self):
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "a.md"
            path.write_text("# One: two\n[x](a.md) [y](#one-two) [z](b.md) [v](a.md#two) ![p](p.png) [w](https://example.org)\n"
                            "<img src=\"q.png\">\n```\n[n](n.md)\n```\n", encoding="utf-8")
            self.assertEqual(wrong_links(path), ["b.md", "a.md#two", "p.png", "q.png"])


unittest.main()
