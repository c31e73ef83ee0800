"""The tutorial of python/README.md: the README shows python/examples/tutorial.py word for word,
and the program runs as written against a board in a beam at the sensor's centre."""

from __future__ import annotations

import re
import runpy
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
TUTORIAL = ROOT / "python" / "examples" / "tutorial.py"


def test_the_readme_shows_the_tutorial_as_it_is() -> None:
    readme = (ROOT / "python" / "README.md").read_text(encoding="utf-8")
    blocks = re.findall(r"```python\n(.*?)```", readme, re.DOTALL)
    assert TUTORIAL.read_text(encoding="utf-8") in blocks


def test_the_tutorial_runs_as_written(capsys, monkeypatch) -> None:
    monkeypatch.chdir(ROOT)
    runpy.run_path(str(TUTORIAL), run_name="__main__")
    out = capsys.readouterr().out
    assert "BoardInfo(serial='OVX00001'" in out
    threshold = re.search(r"^chip H05-W0318: 256 x 256 pixels, threshold ([0-9.]+) keV$", out,
                          re.MULTILINE)
    assert threshold and abs(float(threshold[1]) - 6.0) < 0.1, out
    hottest = re.search(r"^(\d+) hits; the hottest pixel is \((\d+), (\d+)\) with (\d+)$", out,
                        re.MULTILINE)
    assert hottest, out
    hits, x, y, most = map(int, hottest.groups())
    assert hits > 0 and 0 < most <= hits
    assert abs(x - 128) <= 16 and abs(y - 128) <= 16, "the beam spot is at the centre"
