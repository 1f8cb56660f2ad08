#!/usr/bin/env python3
"""Oracle tests for what the engine carries beyond packets, with the checks of oracle.py: Apple
Lossless (from ffmpeg, and remuxed by mkvmerge, whose file GStreamer's own Matroska demuxer fails
on) must play through the MP4, and track languages and names must survive `qvmedia cat` so that
ffprobe reports them on the exported file.
"""
import json
import os
import subprocess
import sys

import oracle
from oracle import fail, qvmedia

PLAYED = ['alac_audio_only.mka', 'h264_alac.mkv']

# Per stream of the exported two_audio_named.mkv: (codec type, language, handler name).
NAMED = [('video', 'und', 'Video'), ('audio', 'eng', 'Commentary'), ('audio', 'jpn', 'Audio')]


def more(args, tmp):
    name = 'two_audio_named.mkv'
    output = os.path.join(tmp, name + '.mp4')
    result = qvmedia(['cat', os.path.join(args.fixtures, name), output], args.qvmedia)
    if result.returncode != 0:
        return fail(name, f'qvmedia cat exited {result.returncode}: {result.stderr.strip()}')
    streams = json.loads(subprocess.run(
        ['ffprobe', '-v', 'error', '-show_streams', '-of', 'json', output],
        check=True, capture_output=True, text=True).stdout)['streams']
    got = [(s['codec_type'], s.get('tags', {}).get('language'), s.get('tags', {}).get('handler_name'))
           for s in streams]
    if got != NAMED:
        fail(name, f'ffprobe reports {got}, expected {NAMED}')
    else:
        print(f'{name}: languages and names kept')


if __name__ == '__main__':
    sys.exit(oracle.run(PLAYED, {}, 'info', more))
