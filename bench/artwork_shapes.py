#!/usr/bin/env python3
"""Hostile and large artwork in FLAC PICTURE blocks: time and peak memory.

Makes each shape in a temporary folder, checks it with the given program
(one job) under /usr/bin/time and prints a table of size, seconds, peak
resident memory and the log lines about artwork.

    python3 bench/artwork_shapes.py build/release/cli/sondrel [name filter]

The AVIF, HEIC and JPEG XL shapes need avifenc, heif-enc and cjxl; the
WebP shapes need ffmpeg built with libwebp.
"""
import os
import struct
import subprocess
import sys
import tempfile
import zlib


def flac(pictures):
    """A FLAC stream of a STREAMINFO block and one PICTURE block per (mime, data)."""
    info = struct.pack(">HH", 4096, 4096) + b"\0" * 6
    info += (44100 << 44 | 1 << 41 | 15 << 36).to_bytes(8, "big") + b"\0" * 16
    blocks = [(0, info)]
    for mime, data in pictures:
        body = struct.pack(">II", 3, len(mime)) + mime + struct.pack(">I", 0)
        body += struct.pack(">IIIII", 0, 0, 0, 0, len(data)) + data
        blocks.append((6, body))
    out = b"fLaC"
    for i, (kind, body) in enumerate(blocks):
        last = 0x80 if i == len(blocks) - 1 else 0
        out += bytes([last | kind]) + len(body).to_bytes(3, "big") + body
    return out + b"\xaa" * 64  # standing for audio frames


def segment(marker, body):
    return b"\xff" + bytes([marker]) + struct.pack(">H", len(body) + 2) + body


def progressive_cmyk_jpeg(side, variant=1):
    """A progressive four-component JPEG declaring side x side pixels whose
    only scan is a few bytes: the decoder pads the rest, but must first set
    aside every coefficient of the picture."""
    dqt = segment(0xDB, b"\0" + bytes([variant]) * 64)
    sof = segment(0xC2, bytes([8]) + struct.pack(">HH", side, side) + bytes([4]) +
                  b"".join(bytes([c, 0x11, 0]) for c in range(1, 5)))
    dht = segment(0xC4, b"\0" + bytes([1] + [0] * 15) + b"\0")  # one code: DC difference 0
    sos = segment(0xDA, bytes([4]) + b"".join(bytes([c, 0]) for c in range(1, 5)) + bytes([0, 0, 0]))
    return b"\xff\xd8" + dqt + sof + dht + sos + b"\0" * 64 + b"\xff\xd9"


def deflated_tiff_one_strip(side):
    """An RGB TIFF of side x side pixels stored as one deflated strip."""
    data = zlib.compress(b"\0" * (side * side * 3), 9)
    entries = [(256, 4, side), (257, 4, side), (258, 3, 8), (259, 3, 8), (262, 3, 2),
               (273, 4, 0), (277, 3, 3), (278, 4, side), (279, 4, len(data))]
    ifd_offset = 8
    data_offset = ifd_offset + 2 + 12 * len(entries) + 4
    ifd = struct.pack("<H", len(entries))
    for tag, kind, value in entries:
        if tag == 273:
            value = data_offset
        ifd += struct.pack("<HHI", tag, kind, 1) + (struct.pack("<HH", value, 0) if kind == 3
                                                     else struct.pack("<I", value))
    return b"II*\0" + struct.pack("<I", ifd_offset) + ifd + b"\0\0\0\0" + data


def run(command):
    return subprocess.run(command, shell=True, capture_output=True).returncode == 0


def read(path):
    with open(path, "rb") as f:
        return f.read()


def patch_ispe(data, width, height):
    """Sets the size every `ispe` box of a HEIF or AVIF file declares."""
    out = bytearray(data)
    at = out.find(b"ispe")
    while at != -1:
        out[at + 8:at + 16] = struct.pack(">II", width, height)
        at = out.find(b"ispe", at + 4)
    return bytes(out)


def jxl_declaring(width, height):
    """A JPEG XL codestream whose header declares width x height and whose
    picture data is missing."""
    bits = []

    def put(value, count):
        bits.extend((value >> i) & 1 for i in range(count))

    put(0, 1)  # not a small size
    put(3, 2), put(height - 1, 30)  # height: 1 + 30-bit value
    put(0, 3)  # no aspect ratio: the width follows
    put(3, 2), put(width - 1, 30)
    put(1, 1)  # default image metadata
    while len(bits) % 8:
        bits.append(0)
    body = bytes(sum(bits[i + j] << j for j in range(8)) for i in range(0, len(bits), 8))
    return b"\xff\x0a" + body + b"\0" * 64


def shapes(tmp):
    """(name, FLAC bytes) of each shape."""
    yield "progressive CMYK JPEG 5792x5792", flac([(b"image/jpeg", progressive_cmyk_jpeg(5792))])
    yield "200 different such JPEGs 2048x2048", flac([(b"image/jpeg", progressive_cmyk_jpeg(2048, v))
                                                         for v in range(1, 201)])
    yield "deflated TIFF 4729x4729, one 64 MiB strip", flac([(b"image/tiff", deflated_tiff_one_strip(4729))])
    webp = os.path.join(tmp, "big.webp")
    if run(f"ffmpeg -nostdin -v error -y -f lavfi -i testsrc=s=5792x5792 -frames:v 1 "
           f"-c:v libwebp -lossless 1 -compression_level 0 {webp}"):
        yield "lossless WebP 5792x5792", flac([(b"image/webp", read(webp))])
    if run(f"ffmpeg -nostdin -v error -y -f lavfi -i color=black:s=5792x5792 -frames:v 1 "
           f"-c:v libwebp -lossless 1 {webp}"):
        yield "400 x flat lossless WebP 5792x5792", flac([(b"image/webp", read(webp))] * 400)
    png = os.path.join(tmp, "small.png")
    run(f"ffmpeg -nostdin -v error -y -f lavfi -i testsrc=s=64x48 -frames:v 1 {png}")
    frames = os.path.join(tmp, "frames.y4m")
    run(f"ffmpeg -nostdin -v error -y -f lavfi -i testsrc=s=64x48:r=25 -frames:v 500 -pix_fmt yuv420p {frames}")
    avif = os.path.join(tmp, "small.avif")
    if run(f"avifenc -s 10 {png} {avif}"):
        data = read(avif)
        yield "AVIF declaring 60000x60000", flac([(b"image/avif", patch_ispe(data, 60000, 60000))])
        yield "AVIF truncated", flac([(b"image/avif", data[:len(data) * 2 // 3])])
        many = os.path.join(tmp, "many.avif")
        if run(f"avifenc -s 10 {frames} {many}"):
            yield "AVIF sequence of 500 frames", flac([(b"image/avif", read(many))])
    heic = os.path.join(tmp, "small.heic")
    if run(f"heif-enc {png} -o {heic}"):
        data = read(heic)
        yield "HEIC declaring 60000x60000", flac([(b"image/heic", patch_ispe(data, 60000, 60000))])
        yield "HEIC truncated", flac([(b"image/heic", data[:len(data) * 2 // 3])])
        pngs = " ".join([png] * 200)
        many = os.path.join(tmp, "many.heic")
        if run(f"heif-enc {pngs} -o {many}"):
            yield "HEIC of 200 pictures", flac([(b"image/heic", read(many))])
    jxl = os.path.join(tmp, "small.jxl")
    if run(f"cjxl {png} {jxl}"):
        data = read(jxl)
        yield "JPEG XL declaring 60000x60000", flac([(b"image/jxl", jxl_declaring(60000, 60000))])
        yield "JPEG XL truncated", flac([(b"image/jxl", data[:len(data) * 2 // 3])])
        apng = os.path.join(tmp, "frames.apng")
        many = os.path.join(tmp, "many.jxl")
        if run(f"ffmpeg -nostdin -v error -y -f lavfi -i testsrc=s=64x48:r=25 -frames:v 500 -f apng {apng}") \
                and run(f"cjxl {apng} {many}"):
            yield "JPEG XL animation of 500 frames", flac([(b"image/jxl", read(many))])


def main():
    program = sys.argv[1] if len(sys.argv) > 1 else "build/release/cli/sondrel"
    only = sys.argv[2] if len(sys.argv) > 2 else ""  # run only shapes whose name holds this
    print(f"{'shape':36} {'bytes':>9} {'s':>6} {'peak MB':>8}  artwork lines")
    with tempfile.TemporaryDirectory() as tmp:
        for name, data in shapes(tmp):
            if only not in name:
                continue
            path = os.path.join(tmp, "shape.flac")
            with open(path, "wb") as f:
                f.write(data)
            timed = subprocess.run(["/usr/bin/time", "-f", "%e %M", program, "-j", "1", "--log", "-", path],
                                   capture_output=True, text=True)
            seconds, kb = timed.stderr.strip().splitlines()[-1].split()
            lines = [l.strip() for l in timed.stdout.splitlines() if "Artwork" in l]
            summary = f"{len(lines)} x {lines[0]}" if lines else "none"
            print(f"{name:36} {len(data):>9} {float(seconds):>6.2f} {int(kb) / 1024:>8.1f}  {summary}",
                  flush=True)


if __name__ == "__main__":
    main()
