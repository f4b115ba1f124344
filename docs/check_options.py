#!/usr/bin/env python3
"""Checks that a program's --help and its man page list every option it takes.

usage: check_options.py PROGRAM SOURCE MAN_PAGE.md

The options the program accepts are the string literals its argument loop
compares with (`a == "--raw"`).  Each must appear in the output of
`PROGRAM --help` and in the man page's Markdown source; each option that
--help lists must be one the program accepts.
"""
import re
import subprocess
import sys


def Mentions(text, option):
    return re.search(r'(?<![\w-])' + re.escape(option) + r'(?![\w-])', text) is not None


def main(argv):
    if len(argv) != 4:
        print(__doc__)
        return 2
    program, source, man = argv[1:]
    accepted = sorted(set(re.findall(r'\b\w+ == "(-{1,2}[A-Za-z][\w-]*)"', open(source, encoding='utf-8').read())))
    if not accepted:
        print('%s: no options found' % source)
        return 1
    help_text = subprocess.run([program, '--help'], capture_output=True, text=True, check=False).stdout
    man_text = open(man, encoding='utf-8').read()
    listed = set(re.findall(r'^\s+(-{1,2}[A-Za-z][\w-]*)', help_text, flags=re.M))
    listed |= set(re.findall(r'^\s+-[A-Za-z], (--[\w-]+)', help_text, flags=re.M))
    failures = []
    for opt in accepted:
        if not Mentions(help_text, opt):
            failures.append('%s is accepted but not in --help' % opt)
        if not Mentions(man_text, opt):
            failures.append('%s is accepted but not in %s' % (opt, man))
    for opt in sorted(listed):
        if opt not in accepted:
            failures.append('%s is in --help but not accepted' % opt)
    for f in failures:
        print(f)
    print('%s: %d options (%s), %d problems' % (program, len(accepted), ' '.join(accepted), len(failures)))
    return 1 if failures else 0


if __name__ == '__main__':
    sys.exit(main(sys.argv))
