#!/usr/bin/env python3
"""Oracle tests for FLAC, AC-3, E-AC-3, MP3 and Apple Lossless in Matroska, FLV, the
transport-stream probe, track languages and names, and the table of real files in the shared
corpus, with the checks of oracle.py. Transport streams must report their presence; every corpus
file has one row in CORPUS saying what it must give, and why when the engine refuses it. ALAC is
also played as mkvmerge writes it, a file GStreamer's own Matroska demuxer fails on.
"""
import os
import subprocess
import sys

import oracle
from oracle import fail, played, qvmedia, refused

PLAYED = [
    'flac_audio_only.mka', 'h264_flac.mkv', 'ac3_audio_only.mka', 'ac3_laced.mkv',
    'eac3_audio_only.mka', 'h264_eac3.mkv', 'mp3_audio_only.mka', 'mp3_ebml_laced.mkv',
    'h264_aac_bframes.flv', 'h264_only.flv', 'alac_audio_only.mka', 'h264_alac.mkv',
]
REFUSED = {
    'h264_mp3.flv': 2,                # FLV audio other than AAC refuses the whole file
    'twelve_bytes.flv': 1,            # shorter than an FLV header
    'second_sequence_header.flv': 2,  # a second AVC sequence header
}
PRESENCE = {
    'ts_audio_only.ts': 'audio',
    'ts_video_only.ts': 'video',
    'ts_both.ts': 'audio, video',
    'ts_m2ts.m2ts': 'audio, video',   # 192-byte packets with time codes
    'h264_aac_bframes.mkv': 'none',   # not a transport stream at all
}

# Per stream of the exported two_audio_named.mkv: (codec type, language, handler name).
NAMED = [('video', 'und', 'Video'), ('audio', 'eng', 'Commentary'), ('audio', 'jpn', 'Audio')]

PLAY = 'play'
# Every file of the shared corpus: PLAY (the oracle passes against ffmpeg's copy of the carried
# streams), an exit code with the reason for the refusal, or a presence text for transport streams.
CORPUS = {
    'mkv/axm-sample.mkv': PLAY,
    'mkv/axm-sample_last_cluster.mkv': PLAY,
    'mkv/axm-sample_with_chapters.mkv': PLAY,
    'mkv/axm-sample_with_srt.mkv': PLAY,
    'mkv/axm-sample_with_ass_subtitles.mkv': PLAY,
    'mkv/axm-sample_with_pgs_subtitles.mkv': PLAY,
    'mkv/axm-sample_with_vtt_subtitles.mkv': PLAY,
    'mkv/axm-sample_av1.mkv': PLAY,
    'mkv/ohos-h265_aac_4sec.mkv': PLAY,
    'mkv/ohos-h265_aac_4sec_cover.mkv': PLAY,
    'mkv/ohos-h265_mp3_4sec_30fps_cover.mkv': PLAY,
    'mkv/ohos-h264_mp3_4sec.mkv': PLAY,
    'mkv/axm-sample_with_dts.mkv': (2, 'DTS audio has no sample entry here'),
    'mkv/axm-sample_with_vorbis_audio.mkv': (2, 'Vorbis audio: refused rather than played silent'),
    'mkv/mkvdemux-hdr.mkv': (2, 'MPEG-4 Part 2 video and Vorbis audio'),
    'mkv/mkvdemux-multi_seekhead.mkv': (2, 'Vorbis audio beside the VP9 video'),
    'mkv/mkvdemux-no_cluster_position.mkv': (2, 'Vorbis audio beside the VP9 video'),
    'mkv/cellar-reference.mkv': (2, 'FFV1 video'),
    'mkv/cellar-unknown_element.mkv': (2, 'FFV1 video (the unknown header element is skipped)'),
    'mkv/cellar-unknown_sized_non_master_element.mkv':
        (2, 'an unknown-sized DocType runs to the end of the header and names no known type'),
    'mkv/libwebm-blockgroup_block_ends_beyond_blockgroup.mkv': (1, 'Segment and Block overrun the file'),
    'mkv/libwebm-fixed_lacing_bad_lace_size.mkv': (1, 'Segment larger than the file'),
    'webm/axm-bbb_1ch_48kHz_q10_opus.webm': PLAY,
    'webm/axm-bbb_642x642_768kbps_30fps_vp9.webm': PLAY,
    'webm/axm-roadtrip-vp92-10bit.webm': PLAY,
    'webm/libwebm-bbb_480p_vp9_opus_1second.webm': PLAY,
    'webm/axm-bbb_960x540_60fps_vp8.webm': (2, 'Vorbis audio beside the VP9 video'),
    'webm/axm-subsample_encrypted_altref.webm': (2, 'encrypted track (ContentEncodings)'),
    'webm/libwebm-block_with_additional.webm': (2, 'VP8 video'),
    'webm/libwebm-colour.webm': (2, 'VP8 video'),
    'webm/libwebm-cues_before_clusters.webm': (2, 'VP8 video'),
    'webm/tsebml-chrome52.webm': (2, 'VP8 video'),
    'webm/tsebml-chrome57.webm': (1, 'truncated inside an element'),
    'webm/tsebml-firefox55nightly.webm': (2, 'VP8 video'),
    'mka/axm-bear-flac-16bit.mka': PLAY,
    'mka/axm-bear-flac-32bit.mka': (2, '32-bit FLAC samples, which platform decoders do not take'),
    'mka/axm-bear-opus.mka': PLAY,
    'mka/axm-opus-5.1.mka': PLAY,
    'flv/axm-sample.flv': PLAY,
    'flv/axm-sample-with-key-frame-index.flv': PLAY,
    'flv/ohos-h265_enhanced.flv': (2, 'enhanced FLV with HEVC by FourCC and MP3 audio'),
    'ogg/axm-bear_vorbis.ogg': (2, 'Ogg is played by the web backend, not remuxed'),
    'ogg/axm-bear.opus': (2, 'Ogg is played by the web backend, not remuxed'),
    'ogg/axm-bear_flac.ogg': (2, 'Ogg is played by the web backend, not remuxed'),
    'ogg/pyrana-bbb_sample_theora.ogv': (2, 'Ogg is played by the web backend, not remuxed'),
    'ts/axm-sd-hls0000000000.ts': 'audio, video',
    'ts/axm-sample_h264_mpeg_audio.ts': 'audio, video',
    'ts/axm-sample_ac3.ts': 'audio',
    'ts/axm-sample_eac3.ts': 'audio',
    'ts/axm-sample_latm.ts': 'audio',
    'ts/axm-sample_scte35.ts': 'audio, video',   # the SCTE-35 data stream counts as nothing
    'ts/axm-sample_with_sdt.ts': 'audio, video',
    'ts/axm-sample_ac3.ps': 'none',              # a program stream has no packet grid
    'ts/ohos-h265_mp3_640.ts': 'audio, video',
    'ts/ohos-2obj_44100Hz_16bit_32k.ts': 'none',  # Audio Vivid (0xD5) is not a known audio type
    'ts/ohos-out001-aes128-encrypted.ts': 'none',  # encrypted segment: no sync bytes
}


def carried(path, tmp):
    """The file itself when it holds only pictures and sound; otherwise ffmpeg's copy of just those
    streams (without subtitles, attached covers or data), as the reference to compare with."""
    streams, _ = oracle.probe(path)
    if all(s['codec_type'] in ('video', 'audio') and not s.get('disposition', {}).get('attached_pic')
           for s in streams):
        return path
    reference = os.path.join(tmp, 'reference.mkv')
    subprocess.run(['ffmpeg', '-v', 'error', '-y', '-i', path, '-map', '0:V?', '-map', '0:a?', '-c', 'copy',
                    reference], check=True, capture_output=True)
    return reference


def presence(name, path, expected, binary):
    result = qvmedia(['presence', path], binary)
    if result.returncode != 0 or result.stdout.strip() != expected:
        fail(name, f'expected presence "{expected}", got exit {result.returncode}: {result.stdout.strip()}')
    else:
        print(f'{name}: {expected}')


def named(args, tmp):
    """Track languages and names survive `qvmedia cat`, as ffprobe reports them."""
    name = 'two_audio_named.mkv'
    output = os.path.join(tmp, name + '.mp4')
    result = qvmedia(['cat', os.path.join(args.fixtures, name), output], args.qvmedia)
    if result.returncode != 0:
        return fail(name, f'qvmedia cat exited {result.returncode}: {result.stderr.strip()}')
    got = [(s['codec_type'], s.get('tags', {}).get('language'), s.get('tags', {}).get('handler_name'))
           for s in oracle.probe(output)[0]]
    if got != NAMED:
        fail(name, f'ffprobe reports {got}, expected {NAMED}')
    else:
        print(f'{name}: languages and names kept')


def more(args, tmp):
    if not args.only or 'two_audio_named.mkv' in args.only:
        named(args, tmp)
    for name, expected in PRESENCE.items():
        if not args.only or name in args.only:
            presence(name, os.path.join(args.fixtures, name), expected, args.qvmedia)
    if not (args.corpus and os.path.isdir(args.corpus)):
        return print('shared corpus absent: its table is skipped')
    only = [n for n in args.only if '/' in n]
    seen = set()
    for folder in sorted(f for f in os.listdir(args.corpus) if os.path.isdir(os.path.join(args.corpus, f))):
        for name in (f'{folder}/{e}' for e in sorted(os.listdir(os.path.join(args.corpus, folder)))):
            if only and name not in only:
                continue
            seen.add(name)
            path = os.path.join(args.corpus, name)
            try:
                expected = CORPUS.get(name)
                if expected == PLAY:
                    print(name, flush=True)
                    played(name, path, tmp, args.qvmedia, carried(path, tmp))
                elif isinstance(expected, str):
                    presence(name, path, expected, args.qvmedia)
                elif expected:
                    refused(name, path, expected[0], args.qvmedia)
                else:  # not in the table yet: it must still fail cleanly or open
                    result = qvmedia(['info', path], args.qvmedia)
                    if result.returncode not in (0, 1, 2, 3, 5):
                        fail(name, f'exited {result.returncode}: {result.stderr.strip()[:200]}')
                    print(f'corpus {name}: not in the table, exit {result.returncode}')
            except subprocess.TimeoutExpired:
                fail(name, 'qvmedia took longer than 120 s')
    for name in sorted(set(CORPUS) - seen) if not only else ():
        print(f'corpus {name}: listed but absent')


if __name__ == '__main__':
    sys.exit(oracle.run(PLAYED, REFUSED, 'presence', more))
