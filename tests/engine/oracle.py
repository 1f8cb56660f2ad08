#!/usr/bin/env python3
"""Oracle tests of the container engine against ffprobe, ffmpeg and GStreamer.

Every played file is exported with `qvmedia cat`; ffprobe must then see the same streams and the
same packets (bytes, key flags, presentation times) in the MP4 as in the source, ffmpeg must decode
it without error and GStreamer must play it to the end. Refused files must fail with their exact
code, transport streams must report their presence. Suites: `matroska` (the Matroska/WebM
fixtures), `codecs` (FLAC, AC-3, E-AC-3, MP3, ALAC, FLV, transport streams, track languages and
names, the events of MP4 timed text, and the table of the shared corpus), `seek` (seeks in both
layouts land on one picture).
"""
import argparse
import json
import os
import random
import re
import subprocess
import sys
import tempfile
from fractions import Fraction

SUITES = {
    'matroska': ([
        'h264_aac_bframes.mkv', 'hevc8_aac_mono.mkv', 'hevc10_pq_opus51.mkv', 'vp9_p0_opus.webm',
        'vp9_p2_opus_mono.webm', 'av1_aac51.mkv', 'aac51_audio_only.mka', 'opus_audio_only.webm',
        'anamorphic_h264.mkv', 'two_audio_default_second.mkv', 'xiph_laced_aac.mka',
        'ebml_laced_aac.mkv', 'blockgroups.mkv', 'odd_timestamp_scale.mkv', 'unknown_sizes.mkv'], {
        'vp8_opus.webm': 2,       # the only video track has a codec the MP4 side does not carry
        'h264_pcm.mkv': 2,        # likewise for the only audio track
        'truncated.mkv': 1,       # the Segment claims more bytes than the file holds
        'trailing_bytes.mkv': 1,  # bytes after the Segment
        'h264_aac.mp4': 2,        # no demuxer for it
    }, 'info'),
    'codecs': ([
        'flac_audio_only.mka', 'h264_flac.mkv', 'ac3_audio_only.mka', 'ac3_laced.mkv',
        'eac3_audio_only.mka', 'h264_eac3.mkv', 'mp3_audio_only.mka', 'mp3_ebml_laced.mkv',
        'h264_aac_bframes.flv', 'h264_only.flv', 'alac_audio_only.mka', 'h264_alac.mkv'], {
        'h264_mp3.flv': 2,                # FLV audio other than AAC refuses the whole file
        'twelve_bytes.flv': 1,            # shorter than an FLV header
        'second_sequence_header.flv': 2,  # a second AVC sequence header
        # Transport streams report what their programme maps announce.
        'ts_audio_only.ts': 'audio', 'ts_video_only.ts': 'video', 'ts_both.ts': 'audio, video',
        'ts_m2ts.m2ts': 'audio, video',   # 192-byte packets with time codes
        'h264_aac_bframes.mkv': 'none',   # not a transport stream at all
        'tx3g.mp4': 2,                    # MP4 is the platform's to play; only its text is read
    }, 'presence'),
}
# QV_MEDIA_LAYOUT=fragmented forces the fragmented layout on every Matroska file with usable Cues;
# these keep the full layout all the same: their Tracks come after the first Cluster, or no Cues.
STAYS_FULL = {'axm-sample_last_cluster.mkv', 'axm-bear-flac-16bit.mka', 'axm-bear-opus.mka'}
# Stream facts the MP4 must keep, and values of them that say nothing.
KEPT = {'width': (), 'height': (), 'sample_rate': (), 'channels': (),
        'sample_aspect_ratio': ('0:1', '1:1'), 'color_transfer': ('unknown',)}
# Per stream of the exported two_audio_named.mkv: (codec type, language, handler name).
NAMED = [('video', 'und', 'Video'), ('audio', 'eng', 'Commentary'), ('audio', 'jpn', 'Audio')]

PLAY = 'play'
# Every file of the shared corpus: PLAY (the oracle passes against ffmpeg's copy of the carried
# streams), an exit code with the reason for the refusal, or a presence text for transport streams.
CORPUS = {name: outcome for outcome, names in {
    PLAY: '''mkv/axm-sample.mkv mkv/axm-sample_last_cluster.mkv mkv/axm-sample_with_chapters.mkv
        mkv/axm-sample_with_srt.mkv mkv/axm-sample_with_ass_subtitles.mkv
        mkv/axm-sample_with_pgs_subtitles.mkv mkv/axm-sample_with_vtt_subtitles.mkv
        mkv/axm-sample_av1.mkv mkv/ohos-h265_aac_4sec.mkv mkv/ohos-h265_aac_4sec_cover.mkv
        mkv/ohos-h265_mp3_4sec_30fps_cover.mkv mkv/ohos-h264_mp3_4sec.mkv
        webm/axm-bbb_1ch_48kHz_q10_opus.webm webm/axm-bbb_642x642_768kbps_30fps_vp9.webm
        webm/axm-roadtrip-vp92-10bit.webm webm/libwebm-bbb_480p_vp9_opus_1second.webm
        mka/axm-bear-flac-16bit.mka mka/axm-bear-opus.mka mka/axm-opus-5.1.mka
        flv/axm-sample.flv flv/axm-sample-with-key-frame-index.flv''',
    (2, 'VP8 video'): 'webm/libwebm-block_with_additional.webm webm/libwebm-colour.webm '
        'webm/libwebm-cues_before_clusters.webm webm/tsebml-chrome52.webm webm/tsebml-firefox55nightly.webm',
    (2, 'Vorbis audio beside the VP9 video'): 'mkv/mkvdemux-multi_seekhead.mkv '
        'mkv/mkvdemux-no_cluster_position.mkv webm/axm-bbb_960x540_60fps_vp8.webm',
    (2, 'Ogg is played by the web backend, not remuxed'): 'ogg/axm-bear_vorbis.ogg ogg/axm-bear.opus '
        'ogg/axm-bear_flac.ogg ogg/pyrana-bbb_sample_theora.ogv',
    (2, 'FFV1 video (an unknown header element is skipped)'):
        'mkv/cellar-reference.mkv mkv/cellar-unknown_element.mkv',
    (2, 'DTS audio has no sample entry here'): 'mkv/axm-sample_with_dts.mkv',
    (2, 'Vorbis audio: refused rather than played silent'): 'mkv/axm-sample_with_vorbis_audio.mkv',
    (2, 'MPEG-4 Visual video and Vorbis audio'): 'mkv/mkvdemux-hdr.mkv',
    (2, 'an unknown-sized DocType runs to the end of the header and names no known type'):
        'mkv/cellar-unknown_sized_non_master_element.mkv',
    (1, 'Segment and Block overrun the file'): 'mkv/libwebm-blockgroup_block_ends_beyond_blockgroup.mkv',
    (1, 'Segment larger than the file'): 'mkv/libwebm-fixed_lacing_bad_lace_size.mkv',
    (2, 'encrypted track (ContentEncodings)'): 'webm/axm-subsample_encrypted_altref.webm',
    (1, 'truncated inside an element'): 'webm/tsebml-chrome57.webm',
    (2, '32-bit FLAC samples, which platform decoders do not take'): 'mka/axm-bear-flac-32bit.mka',
    (2, 'enhanced FLV with HEVC by FourCC and MP3 audio'): 'flv/ohos-h265_enhanced.flv',
    # The SCTE-35 data stream counts as nothing.
    'audio, video': 'ts/axm-sd-hls0000000000.ts ts/axm-sample_h264_mpeg_audio.ts ts/axm-sample_scte35.ts '
        'ts/axm-sample_with_sdt.ts ts/ohos-h265_mp3_640.ts',
    'audio': 'ts/axm-sample_ac3.ts ts/axm-sample_eac3.ts ts/axm-sample_latm.ts',
    # A program stream has no packet grid; Audio Vivid (0xD5) is not a known audio type; an
    # encrypted segment has no sync bytes.
    'none': 'ts/axm-sample_ac3.ps ts/ohos-2obj_44100Hz_16bit_32k.ts ts/ohos-out001-aes128-encrypted.ts',
}.items() for name in names.split()}

failures = []


def fail(name, message):
    failures.append(name)
    print(f'FAIL {name}: {message}', flush=True)


def run(args, binary='ffmpeg', env=None, **kwargs):
    return subprocess.run([binary] + args, capture_output=True, text=True, env=env, **kwargs)


def probe(path):
    """Streams and, per stream, packets (with data hashes and times in seconds from the file's
    first sample)."""
    data = json.loads(run(['-v', 'error', '-show_streams', '-show_packets', '-show_data_hash', 'MD5',
                           '-of', 'json', path], 'ffprobe', check=True).stdout)
    streams, packets = data.get('streams', []), data.get('packets', [])
    for p in packets:
        s = streams[p['stream_index']]
        p['t'] = None if p.get('pts') is None else Fraction(int(p['pts'])) * Fraction(s['time_base'])
    first = min((p['t'] for p in packets if p['t'] is not None), default=Fraction(0))
    return streams, [[p for p in packets if p['stream_index'] == s['index']] for s in streams], first


def compare(name, source, output):
    """Streams, their kept facts, the one enabled track per kind, and every packet's bytes, key flag
    and time."""
    (src, src_packets, src_first), (out, out_packets, out_first) = probe(source), probe(output)
    if [s['codec_name'] for s in src] != [s['codec_name'] for s in out]:
        return fail(name, f'streams differ: {[s["codec_name"] for s in out]}')
    for s, o, a, b in zip(src, out, src_packets, out_packets):
        if len(a) != len(b):
            fail(name, f'stream {s["index"]}: {len(a)} packets in the source, {len(b)} in the MP4')
            continue
        for key, meaningless in KEPT.items():
            if key in s and s[key] not in meaningless and str(s[key]) != str(o.get(key)):
                fail(name, f'stream {s["index"]}: {key} {s[key]} became {o.get(key)}')
        for i, (p, q) in enumerate(zip(a, b)):
            if p['data_hash'] != q['data_hash'] or ('K' in p['flags']) != ('K' in q['flags']):
                fail(name, f'stream {s["index"]} packet {i}: bytes or key flag ({q["flags"]}) differ')
                break
            if p['t'] is None or q['t'] is None:
                continue
            error = abs((q['t'] - out_first) - (p['t'] - src_first))
            frame = Fraction(int(q.get('duration') or 0)) * Fraction(o['time_base'])
            tolerance = Fraction(s['time_base']) + (
                Fraction(1, 90000) if s['codec_type'] == 'video' else max(frame / 4, Fraction(1, 200)))
            if error > tolerance:
                fail(name, f'stream {s["index"]} packet {i}: pts off by {float(error):.6f} s')
                break
    # One enabled track per kind: the first one the source flags default, else the first of its kind.
    for kind in ('video', 'audio'):
        of_kind = [s for s in src if s['codec_type'] == kind]
        default = lambda s: s.get('disposition', {}).get('default')
        enabled = [o['index'] for o in out if o['codec_type'] == kind and default(o)]
        if of_kind and enabled != [([s for s in of_kind if default(s)] or of_kind)[0]['index']]:
            fail(name, f'{kind}: the MP4 enables {enabled}, not the first default track of the source')


def played(name, source, tmp, binary):
    """Exports source and checks the MP4 against it (or ffmpeg's copy of just its pictures and
    sound, without subtitles, attached covers or data), then decodes and plays it."""
    output, reference = os.path.join(tmp, 'out.mp4'), os.path.join(tmp, 'reference.mkv')
    if (result := run(['cat', source, output], binary, timeout=120)).returncode != 0:
        return fail(name, f'qvmedia cat exited {result.returncode}: {result.stderr.strip()}')
    info = json.loads(run(['info', source], binary, timeout=120).stdout)
    forced = os.environ.get('QV_MEDIA_LAYOUT')
    if forced in ('full', 'fragmented'):
        fragments = forced == 'fragmented' and info['format'] == 'matroska'
        expected = 'fragmented' if fragments and os.path.basename(source) not in STAYS_FULL else 'full'
        if info.get('layout') != expected:
            fail(name, f'layout {info.get("layout")}, expected {expected}')
    if info['size'] != os.path.getsize(output):
        fail(name, f'info reports {info["size"]} bytes, cat wrote {os.path.getsize(output)}')
    if not all(s['codec_type'] in ('video', 'audio') and not s.get('disposition', {}).get('attached_pic')
               for s in probe(source)[0]):
        run(['-v', 'error', '-y', '-i', source, '-map', '0:V?', '-map', '0:a?', '-c', 'copy', reference],
            check=True)
        source = reference
    compare(name, source, output)
    if (result := run(['-v', 'error', '-xerror', '-i', output, '-f', 'null', '-'])).returncode != 0:
        fail(name, 'ffmpeg could not decode the MP4: ' + result.stderr.strip()[:300])
    try:
        result = run(['-q', 'playbin', 'uri=file://' + os.path.abspath(output),
                      'video-sink=fakesink sync=false', 'audio-sink=fakesink sync=false'],
                     'gst-launch-1.0', timeout=60)
        if result.returncode != 0:
            fail(name, 'GStreamer did not play the MP4 to the end: ' + (result.stderr + result.stdout)[:300])
    except subprocess.TimeoutExpired:
        fail(name, 'GStreamer did not reach the end within 60 s')
    os.remove(output)


def judge(name, path, expected, binary, tmp, command='info'):
    """Checks one file against its expectation: PLAY, a presence text, or a refusal code (with its
    reason); a file missing from the corpus table must still open or fail cleanly."""
    print(name, flush=True)
    try:
        if expected == PLAY:
            return played(name, path, tmp, binary)
        if isinstance(expected, str):
            result = run(['presence', path], binary, timeout=120)
            if result.returncode != 0 or result.stdout.strip() != expected:
                fail(name, f'expected presence "{expected}", got {result.returncode}: {result.stdout.strip()}')
            return
        result = run([command, path], binary, timeout=120)
        code = expected if isinstance(expected, int) else expected and expected[0]
        if code is None and result.returncode not in (0, 1, 2, 3, 5):
            fail(name, f'exited {result.returncode}: {result.stderr.strip()[:200]}')
        elif code is not None and (result.returncode != code or not result.stderr.startswith(f'error {code}: ')):
            fail(name, f'{command}: expected error {code}, got {result.returncode}: {result.stderr.strip()}')
    except subprocess.TimeoutExpired:
        fail(name, 'qvmedia took longer than 120 s')


def named(args, tmp):
    """Track languages and names survive `qvmedia cat`, as ffprobe reports them."""
    output = os.path.join(tmp, 'named.mp4')
    if run(['cat', os.path.join(args.fixtures, 'two_audio_named.mkv'), output], args.qvmedia).returncode:
        return fail('two_audio_named.mkv', 'qvmedia cat failed')
    got = [(s['codec_type'], s.get('tags', {}).get('language'), s.get('tags', {}).get('handler_name'))
           for s in probe(output)[0]]
    if got != NAMED:
        fail('two_audio_named.mkv', f'ffprobe reports {got}, expected {NAMED}')


def timed_text(args):
    """The events `qvmedia subtitles` reads from the text track of a file the platform plays (an
    MP4's tx3g track; the SubRip track of a Matroska file the engine refuses) are ffprobe's subtitle
    packets that hold text: same start, duration and text (tx3g's 16-bit length and boxes removed;
    our markup for its style records removed and unescaped, and present exactly in the lines whose
    packet has a styl box with records)."""
    for name, prefixed in (('tx3g.mp4', True), ('mpeg4_vorbis_srt.mkv', False)):
        path = os.path.join(args.fixtures, name)
        data = json.loads(run(['-v', 'error', '-select_streams', 's', '-show_packets', '-show_data',
                               '-of', 'json', path], 'ffprobe', check=True).stdout)
        expected = []
        for p in data.get('packets', []):
            raw = bytes.fromhex(''.join(line.split(':', 1)[1][:40].replace(' ', '')
                                        for line in p.get('data', '').splitlines() if ':' in line))
            length = int.from_bytes(raw[:2], 'big') if prefixed else len(raw)
            if length:
                text = raw[2:2 + length] if prefixed else raw
                styl = raw.find(b'styl', 2 + length) if prefixed else -1
                styled = styl >= 0 and int.from_bytes(raw[styl + 4:styl + 6], 'big') > 0
                expected.append((round(float(p['pts_time']), 3), round(float(p['duration_time']), 3),
                                 text.decode('utf-8'), styled))
        result = run(['subtitles', path], args.qvmedia)
        if result.returncode:
            fail(name, f'qvmedia subtitles failed: {result.stderr.strip()}')
            continue
        tracks = json.loads(result.stdout)['tracks']
        got = []
        for e in (e for t in tracks for e in t['events']):
            text = e['text']
            if prefixed:
                plain = re.sub(r'</?(?:b|i|u|font)\b[^>]*>', '', text)
                text = plain.replace('&lt;', '<').replace('&amp;', '&') if plain != text else text
            got.append((round(e['start'], 3), round(e['duration'], 3), text, text != e['text']))
        if len(tracks) != 1 or tracks[0]['codec'] != 'S_TEXT/UTF8' or got != expected or len(got) != 2:
            fail(name, f'qvmedia reads {tracks}, ffprobe {expected}')


def seek(args, tmp):
    """A minute-long file exported in both layouts; ffmpeg seeks each export to 50 random times
    (fixed seed) and decodes the first picture there: bytes and times must agree every time."""
    source, exports = os.path.join(args.fixtures, 'long_h264_aac.mkv'), []
    for layout in ('full', 'fragmented'):
        env = dict(os.environ, QV_MEDIA_LAYOUT=layout)
        exports.append(os.path.join(tmp, layout + '.mp4'))
        result = run(['cat', source, exports[-1]], args.qvmedia, env)
        info = run(['info', source], args.qvmedia, env).stdout
        if result.returncode != 0 or f'"layout":"{layout}"' not in info:
            return fail(layout, f'export failed or got another layout: {result.stderr.strip()} {info}')
    rng = random.Random(12)
    for _ in range(50):
        at, pictures = rng.uniform(0, 59.5), []
        for path in exports:
            out = run(['-v', 'error', '-ss', f'{at:.3f}', '-i', path, '-map', '0:v:0', '-frames:v', '1',
                       '-f', 'framemd5', '-'])
            lines = [l.split(',') for l in out.stdout.splitlines() if l and not l.startswith('#')]
            pictures.append((lines[-1][2].strip(), lines[-1][5].strip()) if lines and not out.returncode else None)
        if pictures[0] != pictures[1] or pictures[0] is None:
            fail(f'seek to {at:.3f} s', f'full layout {pictures[0]}, fragmented {pictures[1]}')


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--suite', choices=['matroska', 'codecs', 'seek'], required=True)
    parser.add_argument('--qvmedia', required=True)
    parser.add_argument('--fixtures', required=True)
    parser.add_argument('--corpus')
    args = parser.parse_args()
    with tempfile.TemporaryDirectory() as tmp:
        if args.suite == 'seek':
            seek(args, tmp)
        else:
            played_names, expected, command = SUITES[args.suite]
            for name, outcome in [(n, PLAY) for n in played_names] + list(expected.items()):
                judge(name, os.path.join(args.fixtures, name), outcome, args.qvmedia, tmp)
            # Paths that are not media: empty, a directory, missing.
            open(os.path.join(tmp, 'empty'), 'wb').close()
            for path, code in (('empty', 1), ('.', 5), ('missing', 5)):
                judge(path, os.path.join(tmp, path), code, args.qvmedia, tmp, command)
        if args.suite == 'codecs':
            named(args, tmp)
            timed_text(args)
            corpus = args.corpus if args.corpus and os.path.isdir(args.corpus) else None
            names = sorted(os.path.relpath(os.path.join(d, f), corpus)
                           for d, _, files in os.walk(corpus) if d != corpus for f in files) if corpus else []
            for name in names:
                judge(name, os.path.join(corpus, name), CORPUS.get(name), args.qvmedia, tmp)
            print('shared corpus absent: its table is skipped' if not corpus else
                  ''.join(f'corpus {n}: listed but absent\n' for n in sorted(set(CORPUS) - set(names))))
    print(f'\n{len(failures)} failure(s)' if failures else '\nall oracle checks passed')
    return 1 if failures else 0


if __name__ == '__main__':
    sys.exit(main())
