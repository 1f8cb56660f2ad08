#!/usr/bin/env python3
"""Oracle tests of the container engine, and the checks codec_oracle.py shares.

Every played fixture is exported with `qvmedia cat`; ffprobe must then see the same streams and
the same packets (bytes, key flags, presentation times) in the MP4 as in the source, ffmpeg must
decode the MP4 without error, and GStreamer must play it to the end. Files the engine refuses must
fail with their exact code. Run directly, this checks the Matroska/WebM fixtures.
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
# QV_MEDIA_LAYOUT=fragmented forces the fragmented layout on every Matroska file with usable Cues;
# these keep the full layout all the same.
STAYS_FULL = {
    'axm-sample_last_cluster.mkv': 'its Tracks come after the first Cluster',
    'axm-bear-flac-16bit.mka': 'no Cues',
    'axm-bear-opus.mka': 'no Cues',
}
# Stream facts the MP4 must keep, and values of them that say nothing.
KEPT = {'width': (), 'height': (), 'sample_rate': (), 'channels': (),
        'sample_aspect_ratio': ('0:1', '1:1'), 'color_transfer': ('unknown',)}

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


def compare_packets(name, s, o, a, b, src_origin, out_origin):
    """Bytes, key flags and times (from each file's first sample) of one stream's packets."""
    tick, worst = Fraction(s['time_base']), Fraction(0)
    for i, (p, q) in enumerate(zip(a, b)):
        where = f'stream {s["index"]} packet {i}'
        if p['data_hash'] != q['data_hash']:
            return fail(name, f'{where}: bytes differ')
        if ('K' in p['flags']) != ('K' in q['flags']):
            return fail(name, f'{where}: key flag {p["flags"]} became {q["flags"]}')
        t0, t1 = seconds(p, s), seconds(q, o)
        if t0 is None or t1 is None:
            continue
        t0, t1 = t0 - src_origin, t1 - out_origin
        if s['codec_type'] == 'video':
            tolerance = tick + Fraction(1, 90000)
        else:
            frame = Fraction(int(q.get('duration') or 0)) * Fraction(o['time_base'])
            tolerance = max(frame / 4, Fraction(1, 200)) + tick
        worst = max(worst, abs(t1 - t0))
        if abs(t1 - t0) > tolerance:
            return fail(name, f'{where}: pts {float(t0):.6f} became {float(t1):.6f}')
    print(f'  stream {s["index"]} {s["codec_type"]} {s["codec_name"]}: {len(a)} packets, '
          f'worst pts error {float(worst) * 1000:.3f} ms')


def compare(name, source, output):
    src_streams, src_packets = probe(source)
    out_streams, out_packets = probe(output)
    codecs = [s['codec_name'] for s in src_streams], [s['codec_name'] for s in out_streams]
    if codecs[0] != codecs[1]:
        return fail(name, f'streams differ: {codecs[0]} vs {codecs[1]}')
    src_origin, out_origin = origin(src_streams, src_packets), origin(out_streams, out_packets)
    for s, o in zip(src_streams, out_streams):
        a, b = src_packets[s['index']], out_packets[o['index']]
        if len(a) != len(b):
            fail(name, f'stream {s["index"]}: {len(a)} packets in the source, {len(b)} in the MP4')
            continue
        for key, meaningless in KEPT.items():
            if key in s and s[key] not in meaningless and str(s[key]) != str(o.get(key)):
                fail(name, f'stream {s["index"]}: {key} {s[key]} became {o.get(key)}')
        compare_packets(name, s, o, a, b, src_origin, out_origin)
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


def played(name, source, tmp, binary, reference=None):
    """Exports source and checks the MP4 against reference (the source itself by default)."""
    output = os.path.join(tmp, os.path.basename(name) + '.mp4')
    result = qvmedia(['cat', source, output], binary)
    if result.returncode != 0:
        return fail(name, f'qvmedia cat exited {result.returncode}: {result.stderr.strip()}')
    info = json.loads(qvmedia(['info', source], binary).stdout)
    forced = os.environ.get('QV_MEDIA_LAYOUT')
    if forced in ('full', 'fragmented'):
        matroska = info['format'] == 'matroska' and os.path.basename(source) not in STAYS_FULL
        expected = 'fragmented' if forced == 'fragmented' and matroska else 'full'
        if info.get('layout') != expected:
            fail(name, f'layout {info.get("layout")}, expected {expected}')
    if info['size'] != os.path.getsize(output):
        fail(name, f'info reports {info["size"]} bytes, cat wrote {os.path.getsize(output)}')
    compare(name, reference or source, output)
    play(name, output)
    os.remove(output)


def refused(name, path, code, binary, command='info'):
    result = qvmedia([command, path], binary)
    if result.returncode != code or not result.stderr.startswith(f'error {code}: '):
        fail(name, f'{command}: expected error {code}, got exit {result.returncode}: {result.stderr.strip()}')
    else:
        print(f'{name}: {command} refused with {code}')


def run(played_names, refused_codes, command, more=None):
    """Plays and refuses the named fixtures, checks `command` on paths that are not media, then
    calls more(args, tmp) for the caller's own checks. Returns the exit status."""
    parser = argparse.ArgumentParser()
    parser.add_argument('--qvmedia', required=True)
    parser.add_argument('--fixtures', required=True)
    parser.add_argument('--corpus')
    parser.add_argument('only', nargs='*')
    args = parser.parse_args()
    wanted = [n for n in played_names + list(refused_codes) if not args.only or n in args.only]

    with tempfile.TemporaryDirectory() as tmp:
        for name in wanted:
            path = os.path.join(args.fixtures, name)
            if name in refused_codes:
                refused(name, path, refused_codes[name], args.qvmedia)
            else:
                print(name, flush=True)
                played(name, path, tmp, args.qvmedia)
        empty = os.path.join(tmp, 'empty')
        open(empty, 'wb').close()
        for path, code in ((empty, 1), (tmp, 5), (os.path.join(tmp, 'missing'), 5)):
            refused(path, path, code, args.qvmedia, command)
        if more:
            more(args, tmp)

    if failures:
        print(f'\n{len(failures)} failure(s)')
        return 1
    print('\nall oracle checks passed')
    return 0


if __name__ == '__main__':
    sys.exit(run(PLAYED, REFUSED, 'info'))
