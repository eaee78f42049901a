"""Bitmaps that claim, or are, more than a picture may be."""

import random
import struct
import zlib


def zeros_packed(count, adler_of_all=True):
    """`count` zeros as zlib packs them, made of one packed MiB again and again."""
    packer = zlib.compressobj(9)
    head = packer.flush(zlib.Z_FULL_FLUSH)
    block = packer.compress(bytes(1 << 20)) + packer.flush(zlib.Z_FULL_FLUSH)
    rest = zlib.compressobj(9, zlib.DEFLATED, -15)
    tail = rest.compress(bytes(count % (1 << 20))) + rest.flush()
    checksum = (count % 65521) << 16 | 1 if adler_of_all else 0
    return b"".join([head, block * (count >> 20), tail, struct.pack(">I", checksum)])


def chunk(kind, content):
    return struct.pack(">I", len(content)) + kind + content + struct.pack(">I", zlib.crc32(kind + content))


def png(width, height, *chunks, depth=8, colour=0, interlaced=0):
    header = struct.pack(">IIBBBBB", width, height, depth, colour, 0, 0, interlaced)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + b"".join(chunks) + chunk(b"IEND", b"")


def png_of_one_colour(width, height):
    return png(width, height, chunk(b"IDAT", zeros_packed((width + 1) * height)))


def png_of_most_pixels():
    return png_of_one_colour(65_535, 65_535 // 8)


def png_without_pixels():
    return png(65_535, 65_535, chunk(b"IDAT", zeros_packed(1 << 20)), depth=16, colour=6)


def png_texts():
    packed = zeros_packed(2 << 30)
    return png(1, 1, chunk(b"zTXt", b"Comment\0\0" + packed), chunk(b"iCCP", b"profile\0\0" + packed),
               chunk(b"IDAT", zlib.compress(b"\0\0")))


def interlaced_png():
    rows = 0
    for x, y, across, down in ((0, 0, 8, 8), (4, 0, 8, 8), (0, 4, 4, 8), (2, 0, 4, 4), (0, 2, 2, 4),
                               (1, 0, 2, 2), (0, 1, 1, 2)):
        columns = -(-(30_000 - x) // across)
        rows += -(-(30_000 - y) // down) * (1 + -(-columns // 8))
    return png(30_000, 30_000, chunk(b"IDAT", zeros_packed(rows)), depth=1, interlaced=1)


def segment(marker, content):
    return struct.pack(">BBH", 0xFF, marker, len(content) + 2) + content


# One code of one bit, for the symbol 0; all bits of the data may be 0 then.
def huffman_table(kind, symbols=b"\0"):
    return segment(0xC4, bytes([kind, len(symbols)] + [0] * 15) + symbols)


def jpeg_head(frame, width, height):
    return (b"\xff\xd8" + segment(0xDB, b"\0" + b"\1" * 64)
            + segment(frame, struct.pack(">BHHBBBB", 8, height, width, 1, 1, 0x11, 0)) + huffman_table(0x00))


def scan(first, last, bits, data):
    return segment(0xDA, bytes([1, 1, 0, first, last, bits])) + data + b"\0" * 4


def jpeg_of_many_scans():
    """Each of 10,000 scans visits a million blocks."""
    side = 8192
    blocks = (side // 8) ** 2
    runs = -(-blocks // 32767)
    again = scan(1, 63, 0, bytes((runs * 15 + 7) // 8))
    return (jpeg_head(0xC2, side, side) + scan(0, 0, 0, bytes((blocks + 7) // 8))
            + huffman_table(0x10, b"\xe0") + again * 10_000 + b"\xff\xd9")


def largest_jpeg():
    blocks = (-(-65_500 // 8)) ** 2
    return (jpeg_head(0xC0, 65_500, 65_500) + huffman_table(0x10)
            + scan(0, 63, 0, bytes((blocks * 2 + 7) // 8)[:-16]) + b"\xff\xd9")


def arithmetic_jpeg():
    return (jpeg_head(0xC9, 4096, 4096) + segment(0xCC, b"\0\x10\x10\x05")
            + scan(0, 63, 0, bytes(range(200)) * 9)[:1000])


def gif(width, height, content, trailer=b";"):
    return b"GIF89a" + struct.pack("<HHBBB", width, height, 0x80, 0, 0) + b"\0\0\0\xff\xff\xff" + content + trailer


def gif_frame(left, top, width, height, data):
    blocks = b"".join(bytes([len(data[i:i + 255])]) + data[i:i + 255] for i in range(0, len(data), 255))
    return b"," + struct.pack("<HHHHB", left, top, width, height, 0) + b"\2" + blocks + b"\0"


def gif_of_many_frames():
    return gif(64, 64, gif_frame(0, 0, 1, 1, b"\x44\1") * 1_000_000)


def largest_gif():
    return gif(65_535, 65_535, gif_frame(0, 0, 65_535, 65_535, b"\x44\1"))


def endless_gif():
    """Codes that say "begin anew", without an end."""
    codes = bytes.fromhex("244992") * 85  # code 4 in three bits each
    return gif(4096, 4096, b"," + struct.pack("<HHHHB", 0, 0, 4096, 4096, 0) + b"\2"
               + (b"\xff" + codes) * 60_000, trailer=b"")


def tiff(*entries, after=0, rest=b""):
    packed = b"".join(struct.pack("<HHII", *entry) for entry in sorted(entries))
    return b"II*\0" + struct.pack("<IH", 8, len(entries)) + packed + struct.pack("<I", after) + rest


def tiff_size(width, height):
    return [(256, 4, 1, width), (257, 4, 1, height), (258, 3, 1, 8), (262, 3, 1, 1), (277, 3, 1, 1)]


def looped_tiff():
    return tiff(*tiff_size(8, 8), (259, 3, 1, 1), (273, 4, 1, 200), (278, 4, 1, 8), (279, 4, 1, 64),
                after=8, rest=bytes(200))


def tiff_of_huge_strips():
    return tiff(*tiff_size(60_000, 60_000), (259, 3, 1, 1), (273, 4, 1, 8), (278, 4, 1, 60_000),
                (279, 4, 1, 0xFFFFFFFF))


def tiff_of_many_tiles():
    return tiff(*tiff_size(0x7FFFFFFF, 0x7FFFFFF), (259, 3, 1, 7), (322, 3, 1, 16), (323, 3, 1, 16),
                (324, 4, 1_000_000_000, 8), (325, 4, 1_000_000_000, 8))


def packed_tiff():
    """Deflate, 30,000 by 30,000."""
    data = zeros_packed(30_000 * 30_000)
    return tiff(*tiff_size(30_000, 30_000), (259, 3, 1, 8), (273, 4, 1, 200), (278, 4, 1, 30_000),
                (279, 4, 1, len(data)), rest=bytes(200 - 8 - 2 - 12 * 9 - 4) + data)


def bmp(width, height, compression, data):
    header = struct.pack("<IiiHHIIiiII", 40, width, height, 1, 8, compression, len(data), 0, 0, 256, 0)
    return struct.pack("<2sIII", b"BM", 54 + 1024 + len(data), 0, 54 + 1024) + header + bytes(1024) + data


def packed_bmp():
    return bmp(65_535, 65_535, 1, b"\xff\1" * 1_000_000 + b"\0\1")


def ico_of_many_pictures():
    picture = struct.pack("<IiiHHIIiiII", 40, 256, 512, 1, 32, 0, 0, 0, 0, 0, 0) + bytes(256 * 256 * 4)
    entry = struct.pack("<BBBBHHII", 0, 0, 0, 0, 1, 32, len(picture), 6 + 16 * 65_535)
    return struct.pack("<HHH", 0, 1, 65_535) + entry * 65_535 + picture


def lossless_webp(width, height):
    """Every code has one symbol only, so that the pixels take no bits at all."""
    bits = (width - 1) | (height - 1) << 14
    position = 14 + 14 + 1 + 3 + 1 + 1 + 1  # size, alpha, version, no transform, no cache, no groups
    for _ in range(5):
        bits |= 1 << position  # a simple code, of one symbol of one bit, 0
        position += 4
    content = b"\x2f" + bits.to_bytes(9, "little")
    return b"VP8L" + struct.pack("<I", len(content)) + content


def webp(content):
    return b"RIFF" + struct.pack("<I", 4 + len(content)) + b"WEBP" + content


def largest_webp():
    return webp(lossless_webp(16_383, 16_383))


def long_webp_animation():
    frame = bytes(12) + b"\x01\0\0" + b"\0" + lossless_webp(1, 1)
    frame = b"ANMF" + struct.pack("<I", len(frame)) + frame
    extended = b"VP8X" + struct.pack("<I", 10) + b"\2\0\0\0" + (16_382).to_bytes(3, "little") * 2
    return webp(extended + b"ANIM" + struct.pack("<IIH", 6, 0, 0) + frame * 100_000)


SIGNATURES = {
    "png": b"\x89PNG\r\n\x1a\n\0\0\0\rIHDR", "jpg": b"\xff\xd8\xff\xe0\0\x10JFIF\0", "gif": b"GIF89a",
    "tiff": b"II*\0", "webp": b"RIFF\xff\xff\0\0WEBPVP8 ", "bmp": b"BM\x36\xff\0\0\0\0\0\0\x36\0\0\0\x28\0\0\0",
    "ico": b"\0\0\1\0\x20\0", "svg": b"<svg xmlns='http://www.w3.org/2000/svg'>", "pdf": b"%PDF-1.7\n",
}


def noise_behind_signatures():
    def noise(signature):
        return lambda: signature + random.Random(43).randbytes(100_000)
    return {f"43-noise.{name}": noise(signature) for name, signature in SIGNATURES.items()}


FILES = {
    "20-most-pixels.png": png_of_most_pixels,
    "20-without-pixels.png": png_without_pixels,
    "21-texts.png": png_texts,
    "22-interlaced.png": interlaced_png,
    "23-many-scans.jpg": jpeg_of_many_scans,
    "24-largest.jpg": largest_jpeg,
    "25-arithmetic.jpg": arithmetic_jpeg,
    "26-many-frames.gif": gif_of_many_frames,
    "27-largest.gif": largest_gif,
    "28-endless.gif": endless_gif,
    "29-loop.tiff": looped_tiff,
    "30-huge-strips.tiff": tiff_of_huge_strips,
    "30-packed.tiff": packed_tiff,
    "31-many-tiles.tiff": tiff_of_many_tiles,
    "32-packed.bmp": packed_bmp,
    "33-many-pictures.ico": ico_of_many_pictures,
    "34-largest.webp": largest_webp,
    "35-long-animation.webp": long_webp_animation,
    **noise_behind_signatures(),
    "44-zeros": lambda: bytes(16 << 20),
}
