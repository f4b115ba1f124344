#!/usr/bin/env python3
"""Doxygen input filter for include/aklac.h.

The header keeps plain C comments so it reads the same in any editor; this
filter marks which of them are documentation before Doxygen parses the file:
  - the opening comment becomes the file's description (@file);
  - a block comment that ends on the line just above a declaration documents
    that declaration (section banners, followed by a blank line, do not);
  - a comment after a field or enumerator on the same line documents it.
Line numbers are kept, so Doxygen's warnings point at the real header.
"""
import re
import sys

BANNER = re.compile(r'^\s*/\*\s*([-=]{6,}|statuses particular)')
PARAM = re.compile(r'^(\s*\*\s+)([A-Za-z_]\w*(?:,\s*[A-Za-z_]\w*)*)(?:\s{2,}|:?\s+(?=(?:in/out|in|out|work)(?::|\s{2,}|$)))'
                   r'(in/out|in|out|work)\b:?\s*(.*)$')
STATUS = re.compile(r'^(\s*\*\s+)(Status(?:es)?(?:,[^:]*)?:)(.*)$')
TRAILING = re.compile(r'([;,]\s*)/\*(?![*<])')


class _Split:
    """Splits a row's text before a second "name dir:" that follows ";  "."""
    PATTERN = re.compile(r';\s{2,}(?=[A-Za-z_]\w*(?:,\s*[A-Za-z_]\w*)*\s+(?:in/out|in|out):)')

    def partition(self, text):
        m = self.PATTERN.search(text)
        if not m:
            return text, '', ''
        return text[:m.start()], ';', text[m.end():]


SPLIT = _Split()


def Direction(word):
    return word.replace('/', ',').replace('work', 'in,out')


def Tag(line):
    """Marks parameter rows and the status list for Doxygen's sections."""
    m = PARAM.match(line)
    if m:
        # Two short rows may share a line: "pSrc  in: ...;  pDst out: ...".
        first, _, second = SPLIT.partition(m.group(4))
        tagged = '%s@param[%s] %s %s' % (m.group(1), Direction(m.group(3)), m.group(2), first)
        if second:
            return tagged + ' ' + Tag(' * ' + second).lstrip(' *')
        return tagged
    m = STATUS.match(line)
    if m:
        return '%s@return %s%s' % (m.group(1), m.group(2), m.group(3))
    return line


def main(path):
    with open(path, encoding='utf-8') as f:
        lines = f.read().split('\n')
    out = list(lines)
    i = 0
    first = True
    while i < len(lines):
        line = lines[i]
        stripped = line.lstrip()
        if stripped.startswith('/*') and not stripped.startswith('/**'):
            end = i
            while '*/' not in lines[end]:
                end += 1
            indent = line[:len(line) - len(stripped)]
            if BANNER.match(line):
                first = False
                i = end + 1
                continue
            if first:
                out[i] = indent + '/** @file' + stripped[2:]
            else:
                nxt = lines[end + 1].strip() if end + 1 < len(lines) else ''
                after = lines[end][lines[end].index('*/') + 2:].strip()
                if not after and nxt and not nxt.startswith(('/*', '#', '}')) and i != end:
                    out[i] = indent + '/**' + stripped[2:]
                    for k in range(i + 1, end + 1):
                        out[k] = Tag(lines[k])
                elif not after and nxt and not nxt.startswith(('/*', '#', '}')):
                    out[i] = indent + '/**' + stripped[2:]
            first = False
            i = end + 1
            continue
        if not stripped.startswith(('/*', '*')):
            out[i] = TRAILING.sub(r'\1/**<', line)
        i += 1
    sys.stdout.write('\n'.join(out))


if __name__ == '__main__':
    main(sys.argv[1])
