"""The examples of the guide run as they stand, one after another."""

import os
import re
from pathlib import Path

ROOT = Path(os.environ["KO_ROOT"])


def test_the_examples(tmp_path, monkeypatch, capsys):
    guide = (ROOT / "docs" / "python.md").read_text(encoding="utf-8")
    examples = re.findall(r"^```python\n(.*?)^```", guide, re.MULTILINE | re.DOTALL)
    assert len(examples) >= 5
    monkeypatch.chdir(tmp_path)
    for sample in ("rocket", "face"):
        (tmp_path / f"{sample}.jpg").write_bytes((ROOT / "samples" / f"{sample}.jpg").read_bytes())
    names = {}
    for example in examples:
        exec(compile(example, "docs/python.md", "exec"), names)
    shown = re.findall(r"^```text\n(.*?)^```", guide, re.MULTILINE | re.DOTALL)
    assert capsys.readouterr().out == "".join(shown)
