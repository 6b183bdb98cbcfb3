"""What the test programs of this folder share that consist of functions: their list, what they
demand, and the command line that runs all of them or those that it names."""

import argparse
import os
import sys
import traceback

TESTS = []


class Skipped(Exception):
    """What the test needs is not here."""


def test(function):
    TESTS.append(function)
    return function


def expect(found, wanted, what="the answer"):
    if found != wanted:
        raise AssertionError(f"{what}\n  expected: {wanted!r}\n  found:    {found!r}")


def run_tests(description, use_program):
    """Tells `use_program` the executable's path and runs the chosen tests; the exit status."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--program", required=True, help="the dovrel to test")
    parser.add_argument("names", nargs="*", help="only these tests")
    arguments = parser.parse_args()
    use_program(os.path.abspath(arguments.program))
    chosen = [one for one in TESTS if not arguments.names or one.__name__ in arguments.names]
    failures = 0
    left_out = 0
    for one in chosen:
        try:
            one()
        except Skipped as reason:
            left_out += 1
            print(f"left out: {one.__name__}: {reason}")
        except Exception:  # whatever goes wrong, the others run
            failures += 1
            print(f"FAILED {one.__name__}")
            traceback.print_exc(limit=-3, file=sys.stdout)
    passed = len(chosen) - failures - left_out
    print(f"{passed} of {len(chosen)} tests passed, {failures} failed")
    return 1 if failures or not chosen else 0
