"""Runs the blocks of a page as one session of Python: each line of standard input is a block as a JSON string, each line of
standard output the JSON string of what differs from it, empty when nothing does."""
import doctest
import io
import json
import sys

answers = sys.stdout
sys.stdout = sys.stderr
names = {"__name__": "__main__"}
for number, line in enumerate(sys.stdin, 1):
    test = doctest.DocTestParser().get_doctest(json.loads(line), names, f"block {number}", None, 0)
    report = io.StringIO()
    runner = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS, verbose=False)
    runner.run(test, out=report.write, clear_globs=False)
    names = test.globs
    difference = report.getvalue() if test.examples else "a session begins with >>>"
    print(json.dumps(difference), file=answers, flush=True)
