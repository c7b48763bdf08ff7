"""A plain encoder of lossless JPEG (ITU-T T.81 annex H) for tests: what no installed tool writes."""

import struct


def predicted(rows, y, x, restart, selection, start):
    """What the sample is predicted as; `start` for the first of an interval of `restart` rows."""
    first_row = y % restart == 0
    if x == 0:
        return start if first_row else rows[y - 1][0]
    if first_row:
        return rows[y][x - 1]
    a, b, c = rows[y][x - 1], rows[y - 1][x], rows[y - 1][x - 1]
    return (None, a, b, c, a + b - c, a + ((b - c) >> 1), b + ((a - c) >> 1), (a + b) >> 1)[selection]


def marker(code, *payload):
    body = b"".join(payload)
    return struct.pack(">BBH", 255, code, len(body) + 2) + body


def entropy_coded(bits):
    bits += "1" * (-len(bits) % 8)
    return int(bits, 2).to_bytes(len(bits) // 8, "big").replace(b"\xff", b"\xff\0")


def encode(components, precision, selection=1, restart=0, shift=0, scans=None):
    """`components`: lists of rows. `restart`: rows between restart markers. `scans`: lists of components, all in one by
    default. The Huffman codes are all of 5 bits, so that every difference has one."""
    height, width, count = len(components[0]), len(components[0][0]), len(components)
    out = b"\xff\xd8" + marker(0xC3, struct.pack(">BHHB", precision, height, width, count),
                               *(bytes([10 + c, 0x11, 0]) for c in range(count)))
    out += marker(0xC4, b"\0", bytes([0] * 4 + [17] + [0] * 11), bytes(range(17)))
    if restart:
        out += marker(0xDD, struct.pack(">H", restart * width))
    interval = restart or height
    for scan in scans or [range(count)]:
        out += marker(0xDA, bytes([len(scan)]), *(bytes([10 + c, 0]) for c in scan), bytes([selection, 0, shift]))
        rows = [[[value >> shift for value in row] for row in components[c]] for c in scan]
        for top in range(0, height, interval):
            bits = []
            for y in range(top, min(top + interval, height)):
                for x in range(width):
                    for plane in rows:
                        guess = predicted(plane, y, x, interval, selection, 1 << (precision - shift - 1))
                        difference = (plane[y][x] - guess + 32767) % 65536 - 32767
                        length = abs(difference).bit_length()
                        bits.append(f"{length:05b}")
                        if 0 < length < 16:
                            bits.append(f"{difference if difference > 0 else difference + (1 << length) - 1:0{length}b}")
            if top:
                out += bytes([255, 0xD0 + (top // interval - 1) % 8])
            out += entropy_coded("".join(bits))
    return out + b"\xff\xd9"
