"""The interpreter sessions of README.md and docs/guide.md, run as doctests, and the guide's
native consumer, built by the guide's own recipe and run as the guide shows."""

import doctest
import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

import kerova

ROOT = Path(__file__).resolve().parent.parent
FENCE = re.compile(r"^```(\w*)\n(.*?)^```$", re.M | re.S)


def blocks(name, language):
    """(line number from 0, text) of each fenced block of `language` in the document `name`."""
    text = (ROOT / name).read_text()
    return [(text.count("\n", 0, m.start(2)), m.group(2)) for m in FENCE.finditer(text) if m.group(1) == language]


def run_sessions(name, sessions, globs):
    """Runs the blocks in order as one session; a failure names the document's line."""
    parser, runner, report = doctest.DocTestParser(), doctest.DocTestRunner(optionflags=doctest.ELLIPSIS), []
    for line, text in sessions:
        test = parser.get_doctest(text, globs, name, name, line)  # which works on a copy of globs
        runner.run(test, out=report.append, clear_globs=False)
        globs = test.globs
    assert runner.tries > 0 and runner.failures == 0, "".join(report)


@pytest.mark.parametrize("name", ["README.md", "docs/guide.md"])
def test_document_sessions(name):
    sessions = [(line, text) for line, text in blocks(name, "python") if ">>>" in text and "kvconsumer" not in text]
    run_sessions(name, sessions, {})


def test_guide_native_consumer_builds_and_runs_by_the_guide_recipe(tmp_path, monkeypatch):
    (_, source), = blocks("docs/guide.md", "cpp")
    (_, recipe), = [block for block in blocks("docs/guide.md", "sh") if "kvconsumer.cpp" in block[1]]
    (tmp_path / "kvconsumer.cpp").write_text(source)
    # The recipe runs as in a user's shell: `python` is the interpreter under test, and none
    # of the preloads or paths that a sanitized test run gives this process reach the compiler.
    env = {k: v for k, v in os.environ.items() if k not in ("LD_PRELOAD", "PYTHONPATH") and "SAN_" not in k}
    env.update(KEROVA_TEST_PYTHON=sys.executable)  # the installed package alone: no source tree
    shell = 'set -euo pipefail\npython() { "$KEROVA_TEST_PYTHON" "$@"; }\n' + recipe
    done = subprocess.run(["bash", "-c", shell], cwd=tmp_path, env=env, capture_output=True, text=True, timeout=300)
    assert done.returncode == 0, done.stdout + done.stderr
    monkeypatch.syspath_prepend(str(tmp_path))
    monkeypatch.delitem(sys.modules, "kvconsumer", raising=False)
    sessions = [block for block in blocks("docs/guide.md", "python") if "kvconsumer" in block[1]]
    run_sessions("docs/guide.md", sessions, {"kerova": kerova})
