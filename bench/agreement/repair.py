"""Copies of broken recordings that perf reads: it prints nothing of a file whose recorder was killed, or
whose end was never written. What stands before the damage stays as it is."""

from __future__ import annotations

import struct
from pathlib import Path

FILE_HEADER = 104
DATA_SECTION = 40
FEATURES = 72
RECORD_HEADER = struct.Struct("<IHH")
AUXTRACE = 71  # followed by bytes beyond its size


def sound_end(content: bytes, begin: int, end: int) -> int:
    """Where the first broken record begins, or the end."""
    while begin + RECORD_HEADER.size <= end:
        kind, _, size = RECORD_HEADER.unpack_from(content, begin)
        following = begin + size
        if kind == AUXTRACE and size >= 16:
            following += struct.unpack_from("<Q", content, begin + 8)[0]
        if size < RECORD_HEADER.size or kind == 0 or following > end:
            break
        begin = following
    return min(begin, end)


def repaired(recording: Path, copy: Path) -> bool:
    """Writes a copy of the sound part where the recording has another. Files of this machine's byte order only."""
    if not recording.is_file():
        return False
    with recording.open("rb") as file:
        header = file.read(FILE_HEADER)
        if header[:8] != b"PERFILE2" or len(header) < FILE_HEADER or header[8] != FILE_HEADER:
            return False
        content = header + file.read()
    begin, size = struct.unpack_from("<2Q", content, DATA_SECTION)
    end = min(begin + size, len(content)) if size else len(content)
    sound = sound_end(content, begin, end)
    if sound == begin + size:
        return False
    # Without the sections behind the records, which are not there or elsewhere.
    data = struct.pack("<2Q", begin, sound - begin)
    header = content[:DATA_SECTION] + data + content[DATA_SECTION + 16 : FEATURES] + bytes(FILE_HEADER - FEATURES)
    copy.write_bytes(header + content[FILE_HEADER:sound])
    return True
