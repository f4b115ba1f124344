#!/usr/bin/env python3
"""Before/after table of two bench builds, measured in one session.

    bench/compare_builds.py BEFORE_BENCH_DIR AFTER_BENCH_DIR [--filter REGEX]
        [--binaries transform_bench,vlc_bench] [--rounds 3]

Each directory is a `bench` preset build (holding bench/<binary>).  The two
builds' binaries run alternately, `--rounds` times each with five
repetitions a run, so that both see the same machine load; the table gives
the median CPU time per iteration of every benchmark present in both, and
after/before (below 1: faster now).  Peer rows (FFTW, KissFFT) run in both
builds unchanged, so their after/before shows the measurement noise.
"""
import argparse
import json
import os
import statistics
import subprocess
import sys


def run(binary, flt):
    out = subprocess.run([binary, f'--benchmark_filter={flt}', '--benchmark_format=json',
                          '--benchmark_repetitions=5', '--benchmark_report_aggregates_only=false'],
                         capture_output=True, text=True, check=True).stdout
    times = {}
    for b in json.loads(out)['benchmarks']:
        if b.get('run_type') != 'iteration':
            continue
        scale = {'ns': 1.0, 'us': 1e3, 'ms': 1e6}[b.get('time_unit', 'ns')]
        times.setdefault(b['run_name'], []).append(b['cpu_time'] * scale)
    return times


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument('before')
    ap.add_argument('after')
    ap.add_argument('--filter', default='.')
    ap.add_argument('--binaries', default='transform_bench,vlc_bench')
    ap.add_argument('--rounds', type=int, default=3)
    a = ap.parse_args()
    for name in a.binaries.split(','):
        old = os.path.join(a.before, 'bench', name)
        new = os.path.join(a.after, 'bench', name)
        if not (os.access(old, os.X_OK) and os.access(new, os.X_OK)):
            print(f'{name}: missing in one of the builds', file=sys.stderr)
            continue
        before, after = {}, {}
        for _ in range(a.rounds):
            for k, v in run(old, a.filter).items():
                before.setdefault(k, []).extend(v)
            for k, v in run(new, a.filter).items():
                after.setdefault(k, []).extend(v)
        print(f'{name}: median CPU ns per iteration, {a.rounds} x 5 runs each, builds alternating')
        print(f'  {"benchmark":44s} {"before":>10s} {"after":>10s} {"after/before":>12s}')
        for k in after:
            t1 = statistics.median(after[k])
            if k in before:
                t0 = statistics.median(before[k])
                print(f'  {k:44s} {t0:10.1f} {t1:10.1f} {t1 / t0:12.2f}')
            else:
                print(f'  {k:44s} {"":>10s} {t1:10.1f}')


if __name__ == '__main__':
    main()
