#!/usr/bin/env python3
"""Seeks in the fragmented layout land where they land in the full one.

A minute-long fixture is exported in both layouts; ffmpeg then seeks each export to 50 random
times (fixed seed) and decodes the first picture there. Picture bytes and presentation times
must agree at every time.
"""
import argparse
import os
import random
import subprocess
import sys
import tempfile


SEEKS = 50


def export(binary, source, output, layout):
    env = dict(os.environ, QV_MEDIA_LAYOUT=layout)
    result = subprocess.run([binary, 'cat', source, output], env=env, capture_output=True, text=True)
    if result.returncode != 0:
        sys.exit(f'qvmedia cat ({layout}) exited {result.returncode}: {result.stderr.strip()}')
    info = subprocess.run([binary, 'info', source], env=env, capture_output=True, text=True).stdout
    if f'"layout":"{layout}"' not in info:
        sys.exit(f'{layout} export did not get the {layout} layout: {info}')


def picture_at(path, seconds):
    """(pts, md5) of the first video frame decoded after seeking to seconds."""
    out = subprocess.run(['ffmpeg', '-v', 'error', '-ss', f'{seconds:.3f}', '-i', path, '-map', '0:v:0',
                          '-frames:v', '1', '-f', 'framemd5', '-'], capture_output=True, text=True)
    lines = [l for l in out.stdout.splitlines() if l and not l.startswith('#')]
    if out.returncode != 0 or not lines:
        return ('error', out.stderr.strip()[:200])
    fields = [f.strip() for f in lines[-1].split(',')]
    return fields[2], fields[5]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--qvmedia', required=True)
    parser.add_argument('--fixtures', required=True)
    args = parser.parse_args()
    source = os.path.join(args.fixtures, 'long_h264_aac.mkv')
    failures = 0
    with tempfile.TemporaryDirectory() as tmp:
        full, fragmented = os.path.join(tmp, 'full.mp4'), os.path.join(tmp, 'fragmented.mp4')
        export(args.qvmedia, source, full, 'full')
        export(args.qvmedia, source, fragmented, 'fragmented')
        rng = random.Random(12)
        for _ in range(SEEKS):
            at = rng.uniform(0, 59.5)
            a, b = picture_at(full, at), picture_at(fragmented, at)
            if a != b or a[0] == 'error':
                failures += 1
                print(f'FAIL seek to {at:.3f} s: full layout {a}, fragmented {b}')
    print(f'{SEEKS - failures} of {SEEKS} seeks landed on the same picture')
    return 1 if failures else 0


if __name__ == '__main__':
    sys.exit(main())
