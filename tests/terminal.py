#!/usr/bin/env python3
"""Types at the prompts of the command on a pseudo-terminal, and looks at what comes.
usage: terminal.py COMMAND (the kestrel to run)"""
import os
import pty
import re
import select
import signal
import sys
import tempfile
import time

WAIT = 20  # seconds for an answer, before the test fails

# What is typed, "" for nothing and a number for a signal; what comes then, as a regular expression.
REPL = (
    ("", "> $"),
    ("Long total = 1;\r", "> $"),
    ("tot\t + 4\r", r"\r\n5\r\n> $"),
    ("\x10\r", r"\r\n5\r\n> $"),  # the line before
    ("function Long f {\r", r"\. $"),
    ("return 7; }\r", "> $"),
    ("f()\r", r"\r\n7\r\n> $"),
    ("while (true) {}\r", ""),
    (signal.SIGINT, "interrupted.*> $"),
    ("total\r", r"\r\n1\r\n> $"),
    (":quit\r", "ended with 0$"),
)
HISTORY = (("", "> $"), (9 * "\x10", "Long total = 1;"), (signal.SIGTERM, "ended by 15$"))
DEBUG = (
    ("", r"\(debug\) $"),
    ("c\r", ""),
    (signal.SIGINT, r"loop.ks:2.*\(debug\) $"),
    ("p n\r", r"\r\n1\r\n\(debug\) $"),
    (signal.SIGTERM, "ended with 0$"),
)


def play(arguments, lines, home):
    child, terminal = pty.fork()
    if child == 0:
        os.environ.update(HOME=home, TERM="dumb")
        os.chdir(home)
        os.execv(arguments[0], arguments)
    for typed, wanted in lines:
        if isinstance(typed, int):
            time.sleep(0.2)  # for the statement to begin
            os.kill(child, typed)
        else:
            os.write(terminal, typed.encode())
        text = ""
        end = time.monotonic() + WAIT
        while not re.search(wanted, text, re.S):
            if not select.select([terminal], [], [], max(0, end - time.monotonic()))[0]:
                os.kill(child, signal.SIGKILL)
                sys.exit(f"{arguments}: after {typed!r}, {text!r} came and not {wanted!r}")
            try:
                text += os.read(terminal, 4096).decode(errors="replace")
            except OSError:  # it has ended
                status = os.waitpid(child, 0)[1]
                ended = os.waitstatus_to_exitcode(status)
                text += f"ended with {ended}" if ended >= 0 else f"ended by {-ended}"
                if not re.search(wanted, text, re.S):
                    sys.exit(f"{arguments}: after {typed!r}, {text!r} came and not {wanted!r}")


def main():
    command = os.path.abspath(sys.argv[1])
    with tempfile.TemporaryDirectory() as home:
        with open(f"{home}/loop.ks", "w") as script:
            script.write("Long n = 1;\nwhile (n > 0) {}\n")
        play([command, "repl"], REPL, home)
        play([command, "repl"], HISTORY, home)
        play([command, "debug", "loop.ks"], DEBUG, home)


main()
