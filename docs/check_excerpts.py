#!/usr/bin/env python3
"""Checks that every C excerpt in a guide is copied from its example.

usage: check_excerpts.py GUIDE.md EXAMPLE.c [EXAMPLE.c ...]

Each ```c block of the guide must appear in one of the examples, line for
line, ignoring leading and trailing white space and lines that hold only
"...".  A guide that quotes code the examples no longer contain fails, so
the excerpts cannot drift from the programs the tests build and run.
"""
import re
import sys


def Lines(text):
    return [l.strip() for l in text.split('\n')]


def Contains(haystack, needle):
    """True if the needle lines appear in order in haystack, consecutive
    except where the needle has a '...' line (which skips any lines)."""
    parts, cur = [], []
    for l in needle:
        if l == '...':
            if cur:
                parts.append(cur)
            cur = []
        elif l or cur:
            cur.append(l)
    if cur:
        parts.append(cur)
    pos = 0
    for part in parts:
        while part and not part[-1]:
            part.pop()
        found = -1
        for i in range(pos, len(haystack) - len(part) + 1):
            if haystack[i:i + len(part)] == part:
                found = i
                break
        if found < 0:
            return False, part
        pos = found + len(part)
    return True, None


def main(argv):
    if len(argv) < 3:
        print(__doc__)
        return 2
    guide = open(argv[1], encoding='utf-8').read()
    sources = [Lines(open(p, encoding='utf-8').read()) for p in argv[2:]]
    blocks = re.findall(r'```c\n(.*?)```', guide, flags=re.S)
    if not blocks:
        print('%s: no C excerpts' % argv[1])
        return 1
    failures = 0
    for n, block in enumerate(blocks, 1):
        needle = Lines(block)
        results = [Contains(src, needle) for src in sources]
        if not any(ok for ok, _ in results):
            failures += 1
            missing = results[0][1]
            print('%s: excerpt %d is not in the examples; first unmatched part:' % (argv[1], n))
            print('\n'.join('    ' + l for l in missing))
    print('%s: %d excerpts, %d not found' % (argv[1], len(blocks), failures))
    return 1 if failures else 0


if __name__ == '__main__':
    sys.exit(main(sys.argv))
