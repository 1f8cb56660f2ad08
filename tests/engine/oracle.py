#!/usr/bin/env python3
"""Oracle tests of the container engine.

Every generated Matroska/WebM fixture is exported with `qvmedia cat`; ffprobe must then see the
same streams and the same packets (bytes, key flags, presentation times) in the MP4 as in the
source, ffmpeg must decode the MP4 without error, and GStreamer must play it to the end. Files the
engine refuses must fail with their exact code. Matroska files of the shared corpus, when present,
only have to open or fail cleanly.
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile
from fractions import Fraction

PLAYED = [
    'h264_aac_bframes.mkv', 'hevc8_aac_mono.mkv', 'hevc10_pq_opus51.mkv', 'vp9_p0_opus.webm',
    'vp9_p2_opus_mono.webm', 'av1_aac51.mkv', 'aac51_audio_only.mka', 'opus_audio_only.webm',
    'anamorphic_h264.mkv', 'two_audio_default_second.mkv', 'xiph_laced_aac.mka', 'ebml_laced_aac.mkv',
    'blockgroups.mkv', 'odd_timestamp_scale.mkv', 'unknown_sizes.mkv',
]
REFUSED = {
    'vp8_opus.webm': 2,        # the only video track has a codec the MP4 side does not carry
    'h264_pcm.mkv': 2,         # likewise for the only audio track
    'truncated.mkv': 1,        # the Segment claims more bytes than the file holds
    'trailing_bytes.mkv': 1,   # bytes after the Segment
    'h264_aac.mp4': 2,         # no demuxer for it
}

failures = []


def fail(name, message):
    failures.append(f'{name}: {message}')
    print(f'FAIL {name}: {message}', flush=True)


def probe(path):
    out = subprocess.run(
        ['ffprobe', '-v', 'error', '-show_streams', '-show_packets', '-show_data_hash', 'MD5', '-of', 'json', path],
        check=True, capture_output=True, text=True).stdout
    data = json.loads(out)
    streams = data.get('streams', [])
    packets = {s['index']: [] for s in streams}
    for p in data.get('packets', []):
        packets[p['stream_index']].append(p)
    return streams, packets


def seconds(packet, stream):
    if packet.get('pts') is None:
        return None
    return Fraction(int(packet['pts'])) * Fraction(stream['time_base'])


def origin(streams, packets):
    times = [seconds(p, s) for s in streams for p in packets[s['index']]]
    return min((t for t in times if t is not None), default=Fraction(0))


def compare(name, source, output):
    src_streams, src_packets = probe(source)
    out_streams, out_packets = probe(output)
    if [s['codec_name'] for s in src_streams] != [s['codec_name'] for s in out_streams]:
        fail(name, f"streams differ: {[s['codec_name'] for s in src_streams]} vs {[s['codec_name'] for s in out_streams]}")
        return
    # The movie starts at its earliest sample, so times are compared from each file's first one.
    src_origin, out_origin = origin(src_streams, src_packets), origin(out_streams, out_packets)
    for s, o in zip(src_streams, out_streams):
        a, b = src_packets[s['index']], out_packets[o['index']]
        kind = s['codec_type']
        if len(a) != len(b):
            fail(name, f'stream {s["index"]}: {len(a)} packets in the source, {len(b)} in the MP4')
            continue
        for key in ('width', 'height', 'sample_rate', 'channels'):
            if key in s and str(s[key]) != str(o.get(key)):
                fail(name, f'stream {s["index"]}: {key} {s[key]} became {o.get(key)}')
        if kind == 'video' and s.get('sample_aspect_ratio') not in (None, '0:1', '1:1') and \
                s.get('sample_aspect_ratio') != o.get('sample_aspect_ratio'):
            fail(name, f'stream {s["index"]}: aspect {s.get("sample_aspect_ratio")} became {o.get("sample_aspect_ratio")}')
        if kind == 'video' and s.get('color_transfer') not in (None, 'unknown') and \
                s.get('color_transfer') != o.get('color_transfer'):
            fail(name, f'stream {s["index"]}: transfer {s.get("color_transfer")} became {o.get("color_transfer")}')
        tick = Fraction(s['time_base'])
        worst = Fraction(0)
        for i, (p, q) in enumerate(zip(a, b)):
            if p['data_hash'] != q['data_hash']:
                fail(name, f'stream {s["index"]} packet {i}: bytes differ')
                break
            if ('K' in p['flags']) != ('K' in q['flags']):
                fail(name, f'stream {s["index"]} packet {i}: key flag {p["flags"]} became {q["flags"]}')
                break
            t0, t1 = seconds(p, s), seconds(q, o)
            if t0 is None or t1 is None:
                continue
            t0, t1 = t0 - src_origin, t1 - out_origin
            if kind == 'video':
                tolerance = tick + Fraction(1, 90000)
            else:
                rate = int(o['sample_rate'])
                frame = Fraction(int(q.get('duration') or 0)) * Fraction(o['time_base'])
                tolerance = max(frame / 4, Fraction(1, 200)) + tick
            worst = max(worst, abs(t1 - t0))
            if abs(t1 - t0) > tolerance:
                fail(name, f'stream {s["index"]} packet {i}: pts {float(t0):.6f} became {float(t1):.6f}')
                break
        print(f'  stream {s["index"]} {kind} {s["codec_name"]}: {len(a)} packets, worst pts error {float(worst) * 1000:.3f} ms')
    # One enabled track per kind: the first one the source flags default, else the first of its kind.
    for kind in ('video', 'audio'):
        src = [s for s in src_streams if s['codec_type'] == kind]
        if not src:
            continue
        flagged = [s for s in src if s.get('disposition', {}).get('default')]
        expected = (flagged or src)[0]['index']
        enabled = [o['index'] for o in out_streams if o['codec_type'] == kind and o.get('disposition', {}).get('default')]
        if enabled != [expected]:
            fail(name, f'{kind}: stream {expected} should be the one enabled track, MP4 enables {enabled}')


def play(name, path):
    result = subprocess.run(['ffmpeg', '-v', 'error', '-xerror', '-i', path, '-f', 'null', '-'],
                            capture_output=True, text=True)
    if result.returncode != 0:
        fail(name, 'ffmpeg could not decode the MP4: ' + result.stderr.strip()[:300])
    try:
        result = subprocess.run(['gst-launch-1.0', '-q', 'playbin', 'uri=file://' + os.path.abspath(path),
                                 'video-sink=fakesink sync=false', 'audio-sink=fakesink sync=false'],
                                capture_output=True, text=True, timeout=60)
        if result.returncode != 0:
            fail(name, 'GStreamer did not play the MP4 to the end: ' + (result.stderr + result.stdout).strip()[:300])
    except subprocess.TimeoutExpired:
        fail(name, 'GStreamer did not reach the end within 60 s')


def qvmedia(args, binary):
    return subprocess.run([binary] + args, capture_output=True, text=True, timeout=120)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--qvmedia', required=True)
    parser.add_argument('--fixtures', required=True)
    parser.add_argument('--corpus')
    parser.add_argument('only', nargs='*')
    args = parser.parse_args()

    with tempfile.TemporaryDirectory() as tmp:
        for name in PLAYED:
            if args.only and name not in args.only:
                continue
            print(f'{name}', flush=True)
            source = os.path.join(args.fixtures, name)
            output = os.path.join(tmp, name + '.mp4')
            result = qvmedia(['cat', source, output], args.qvmedia)
            if result.returncode != 0:
                fail(name, f'qvmedia cat exited {result.returncode}: {result.stderr.strip()}')
                continue
            info = json.loads(qvmedia(['info', source], args.qvmedia).stdout)
            if info['size'] != os.path.getsize(output):
                fail(name, f'info reports {info["size"]} bytes, cat wrote {os.path.getsize(output)}')
            compare(name, source, output)
            play(name, output)
            os.remove(output)

        for name, code in REFUSED.items():
            if args.only and name not in args.only:
                continue
            result = qvmedia(['info', os.path.join(args.fixtures, name)], args.qvmedia)
            if result.returncode != code or not result.stderr.startswith(f'error {code}: '):
                fail(name, f'expected error {code}, got exit {result.returncode}: {result.stderr.strip()}')
            else:
                print(f'{name}: refused with {code}')

        # Paths that are not media at all.
        empty = os.path.join(tmp, 'empty.mkv')
        open(empty, 'wb').close()
        for path, code in ((empty, 1), (tmp, 5), (os.path.join(tmp, 'missing.mkv'), 5)):
            result = qvmedia(['info', path], args.qvmedia)
            if result.returncode != code:
                fail(path, f'expected error {code}, got exit {result.returncode}')

        if args.corpus and os.path.isdir(args.corpus) and not args.only:
            for entry in sorted(os.listdir(args.corpus)):
                if not entry.lower().endswith(('.mkv', '.webm', '.mka')):
                    continue
                path = os.path.join(args.corpus, entry)
                try:
                    result = qvmedia(['cat', path, os.path.join(tmp, 'corpus.mp4')], args.qvmedia)
                except subprocess.TimeoutExpired:
                    fail(entry, 'qvmedia took longer than 120 s')
                    continue
                if result.returncode not in (0, 1, 2, 3, 5):
                    fail(entry, f'qvmedia crashed or exited {result.returncode}: {result.stderr.strip()[:200]}')
                else:
                    print(f'corpus {entry}: exit {result.returncode}')

    if failures:
        print(f'\n{len(failures)} failure(s)')
        return 1
    print('\nall oracle checks passed')
    return 0


if __name__ == '__main__':
    sys.exit(main())
