#!/usr/bin/env python3
"""Regenerates every generated table source of the library from the inputs in
this folder, or checks that the committed ones are current.

    python3 src/tables/regen.py            rewrite them in the source tree
    python3 src/tables/regen.py --check    regenerate into a scratch folder and
                                           diff; exit 1 when one differs

Run by the `regen-tables` build target and by the `generated_tables_current`
test.  Each entry: the generator, its arguments (inputs in src/tables), the
file it writes (relative to the repository root).
"""
import difflib
import os
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
TABLES = 'src/tables'

# (generator, arguments, outputs); '{out}' is the output folder of a
# generator that writes files itself, otherwise its standard output is the
# single output.
JOBS = [
    ('src/mp3/gen_huffman_tables.py', [f'{TABLES}/mp3_huffman.txt'], ['src/mp3/huffman_tables.cpp']),
    ('src/mp3/gen_synthesis_window.py', [f'{TABLES}/mp3_synthesis_window.txt'], ['src/mp3/synthesis_window_table.hpp']),
    ('src/aac/gen_tables.py', [TABLES, '{out}/src/aac'], ['src/aac/huffman_tables.cpp', 'src/aac/band_tables.cpp']),
    ('src/aac/gen_spectral_tables.py', [], ['src/aac/spectral_tables.hpp']),
]


def generate(out_root):
    for script, args, outputs in JOBS:
        argv = [sys.executable, os.path.join(ROOT, script)] + [a.format(out=out_root) for a in args]
        for o in outputs:
            os.makedirs(os.path.dirname(os.path.join(out_root, o)), exist_ok=True)
        if any('{out}' in a for a in args):
            subprocess.run(argv, cwd=ROOT, check=True)
        else:
            text = subprocess.run(argv, cwd=ROOT, check=True, capture_output=True, text=True).stdout
            with open(os.path.join(out_root, outputs[0]), 'w') as f:
                f.write(text)


def main():
    if sys.argv[1:] == ['--check']:
        with tempfile.TemporaryDirectory() as tmp:
            generate(tmp)
            stale = 0
            for _, _, outputs in JOBS:
                for o in outputs:
                    new = open(os.path.join(tmp, o)).read().splitlines(keepends=True)
                    old = open(os.path.join(ROOT, o)).read().splitlines(keepends=True)
                    if new != old:
                        stale += 1
                        sys.stdout.writelines(list(difflib.unified_diff(old, new, o, o + ' (regenerated)'))[:40])
            print(f'{stale} generated file(s) differ from their inputs' if stale else 'generated tables are current')
            return 1 if stale else 0
    if sys.argv[1:]:
        print(__doc__, file=sys.stderr)
        return 2
    generate(ROOT)
    return 0


if __name__ == '__main__':
    sys.exit(main())
