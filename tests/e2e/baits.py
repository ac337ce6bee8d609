"""Pictures and films that name other files and addresses, made here byte by byte."""

import gzip
import shutil
import struct
import subprocess

import framefile


def svg(bait):
    """Everything by which a drawing can ask for something else."""
    return f"""<?xml version="1.0"?>
<?xml-stylesheet href="file://{bait}/style.css" type="text/css"?>
<!DOCTYPE svg [
  <!ENTITY secret SYSTEM "file://{bait}/secret.txt">
  <!ENTITY % more SYSTEM "file://{bait}/more.dtd"> %more;
]>
<svg xmlns="http://www.w3.org/2000/svg" xmlns:xlink="http://www.w3.org/1999/xlink"
     xmlns:xi="http://www.w3.org/2001/XInclude" width="40" height="30">
  <style>@import url("file://{bait}/style.css"); @import url("http://127.0.0.1:9/style.css");</style>
  <rect width="40" height="30" fill="red"/>
  <image href="file://{bait}/secret.png" width="10" height="10"/>
  <image xlink:href="{bait}/secret.png" width="10" height="10"/>
  <image href="secret.png" width="10" height="10"/>
  <image href="http://127.0.0.1:9/secret.png" width="10" height="10"/>
  <image href="//127.0.0.1/share/secret.png" width="10" height="10"/>
  <use href="file://{bait}/other.svg#part"/>
  <filter id="f"><feImage href="file://{bait}/secret.png"/></filter>
  <rect width="5" height="5" filter="url(#f)"/>
  <xi:include href="file://{bait}/secret.txt" parse="text"/>
  <text x="0" y="20">&secret;</text>
</svg>
""".encode()


def plain_svg(bait):
    """The same without a document type, which alone may have a drawing refused."""
    head, _, rest = svg(bait).partition(b"<!DOCTYPE")
    return head + rest.partition(b"]>\n")[2].replace(b"&secret;", b"")


def pdf(bait):
    """A page whose picture is a stream in another file, that refers to a page of another document,
    and whose actions open files and addresses."""
    name = f"{bait}/secret.pdf"
    page = (b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 60 40] /Contents 4 0 R"
            b" /Resources << /XObject << /Im 5 0 R /Rf 6 0 R >> >>"
            b" /Annots [ << /Type /Annot /Subtype /Link /Rect [0 0 60 40] /A 7 0 R >> ]"
            b" /AA << /O 7 0 R >> >>")
    content = b"q 60 0 0 40 0 0 cm /Im Do Q /Rf Do"
    outside = f"/F << /Type /Filespec /F ({bait}/secret.raw) >>".encode()
    objects = [
        b"<< /Type /Catalog /Pages 2 0 R /OpenAction 7 0 R >>",
        b"<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        page,
        b"<< /Length %d >>\nstream\n%s\nendstream" % (len(content), content),
        b"<< /Type /XObject /Subtype /Image /Width 1 /Height 1 /ColorSpace /DeviceGray"
        b" /BitsPerComponent 8 /Length 0 " + outside + b" >>\nstream\n\nendstream",
        b"<< /Type /XObject /Subtype /Form /BBox [0 0 60 40] /Length 0 /Ref << /F (%s) /Page 0 >> >>"
        b"\nstream\n\nendstream" % name.encode(),
        b"<< /S /GoToR /F (%s) /D [0 /Fit] /Next [ << /S /Launch /F (%s) >>"
        b" << /S /URI /URI (http://127.0.0.1:9/) >> ] >>" % (name.encode(), name.encode())]
    text, places = b"%PDF-1.5\n", []
    for number, body in enumerate(objects, 1):
        places.append(len(text))
        text += b"%d 0 obj\n%s\nendobj\n" % (number, body)
    table = b"".join(b"%010d 00000 n \n" % place for place in places)
    return text + (b"xref\n0 %d\n0000000000 65535 f \n%strailer\n<< /Size %d /Root 1 0 R >>\n"
                   b"startxref\n%d\n%%%%EOF\n" % (len(places) + 1, table, len(places) + 1, len(text)))


def film(path, *options):
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i",
                    "testsrc=size=64x48:rate=10:duration=0.5", "-pix_fmt", "yuv420p", *options,
                    str(path)], check=True, stdin=subprocess.DEVNULL)
    return path.read_bytes()


def box(kind, content):
    return struct.pack(">I4s", 8 + len(content), kind) + content


def rebuilt(data, change, inside=(b"moov", b"trak", b"mdia", b"minf", b"dinf")):
    """An ISO media file with some boxes changed: `change` says what becomes of a box's content."""
    result = b""
    while data:
        size, kind = struct.unpack_from(">I4s", data)
        content = data[8:size]
        content = rebuilt(content, change, inside) if kind in inside else change(kind, content)
        result += box(kind, content)
        data = data[size:]
    return result


def mov(path, bait, kind):
    """A film whose samples lie in another file: an address, or the alias record of a disk."""
    place = f"{bait}/secret.mov"
    if kind == b"url ":
        entry = box(b"url ", b"\0\0\0\0" + f"file://{place}\0".encode())
    else:
        record = b"\0" * 10
        record += bytes([5]) + b"bait".ljust(27, b"\0") + b"\0" * 12
        record += bytes([10]) + b"secret.mov".ljust(63, b"\0") + b"\0" * 16
        record += struct.pack(">hh", 0, 1) + b"\0" * 16
        absolute, volume = place.encode(), b"/"
        record += struct.pack(">HH", 2, len(absolute)) + absolute + b"\0" * (len(absolute) % 2)
        record += struct.pack(">HH", 18, len(absolute)) + absolute + b"\0" * (len(absolute) % 2)
        record += struct.pack(">HH", 19, len(volume)) + volume + b"\0"
        record += struct.pack(">hH", -1, 0)
        entry = box(b"alis", b"\0\0\0\0" + record)

    def change(kind_of_box, content):
        return b"\0\0\0\0\0\0\0\1" + entry if kind_of_box == b"dref" else content
    return rebuilt(film(path, "-c:v", "mpeg4", "-f", "mov"), change)


def mkv(path, bait):
    """A segment that says which files come before and after it."""
    data = film(path, "-c:v", "mpeg4", "-f", "matroska", "-live", "1")
    name = f"{bait}/secret.mkv".encode()
    more = b"".join(ident + bytes([0x80 | len(name)]) + name
                    for ident in (b"\x3c\x83\xab", b"\x3e\x83\xbb"))
    at = data.index(b"\x15\x49\xa9\x66") + 4
    length = 8 - (data[at].bit_length() - 1)
    size = int.from_bytes(data[at:at + length], "big") & ((1 << (7 * length)) - 1)
    whole = (1 << 56 | (size + len(more))).to_bytes(8, "big")
    return data[:at] + whole + data[at + length:at + length + size] + more + data[at + length + size:]


def playlists(bait):
    """Texts that list other files, under the names of films."""
    film_of = f"{bait}/secret.mp4"
    return {
        "list.ts": f"#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nfile://{film_of}\n"
                   "#EXTINF:1,\nhttp://127.0.0.1:9/a.ts\n#EXT-X-ENDLIST\n",
        "plain.mp4": f"#EXTM3U\n#EXTINF:1,\n{film_of}\n#EXT-X-ENDLIST\n",
        "concat.mkv": f"ffconcat version 1.0\nfile '{film_of}'\n",
        "dash.mp4": '<?xml version="1.0"?><MPD xmlns="urn:mpeg:dash:schema:mpd:2011" type="static"'
                    ' mediaPresentationDuration="PT1S"><Period><AdaptationSet mimeType="video/mp4">'
                    f'<Representation id="1" bandwidth="1"><BaseURL>file://{film_of}</BaseURL>'
                    "</Representation></AdaptationSet></Period></MPD>",
        "session.mov": "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=x\nc=IN IP4 127.0.0.1\nt=0 0\n"
                       "m=video 5004 RTP/AVP 96\na=rtpmap:96 H264/90000\n",
        "images.avi": f"{bait}/secret%03d.png\n",
    }


def tiff(bait):
    """One pixel, whose description and document name are paths, and a directory that comes back to
    itself."""
    name = f"{bait}/secret.tif\0".encode()
    entries = [(256, 3, 1, 1), (257, 3, 1, 1), (258, 3, 1, 8), (259, 3, 1, 1), (262, 3, 1, 1),
               (269, 2, len(name), 300), (270, 2, len(name), 300), (273, 4, 1, 299),
               (277, 3, 1, 1), (278, 3, 1, 1), (279, 4, 1, 1), (330, 4, 1, 8)]
    directory = struct.pack("<H", len(entries))
    for tag, kind, count, value in entries:
        directory += struct.pack("<HHII", tag, kind, count, value)
    directory += struct.pack("<I", 8)
    return (b"II*\0" + struct.pack("<I", 8) + directory).ljust(299, b"\0") + b"\x80" + name


def plain_heif(path, *coding):
    """A picture of 64x64 as phones write it, HEIC; with "-A" it is AVIF. None where it cannot be
    made."""
    picture = path.with_suffix(".png")
    framefile.write_png(picture, 64, 64, b"\x80" * (64 * 64 * 3))
    if shutil.which("heif-enc") is None or subprocess.run(
            ["heif-enc", *coding, str(picture), "-o", str(path)], stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL, check=False).returncode != 0:
        return None
    return path.read_bytes()


def lying_elsewhere(places, moved):
    """The places of a HEIF picture's data: in the file that the first reference names. Those in
    this file are `moved` by some bytes, for readers that look for them here."""
    version, sizes = places[0], [places[4] >> 4, places[4] & 15, places[5] >> 4,
                                 places[5] & 15 if places[0] else 0]
    offset_size, length_size, base_size, index_size = sizes
    number_size = 2 if version < 2 else 4
    result, at = bytearray(places), 6 + number_size
    for _ in range(int.from_bytes(places[6:at], "big")):
        at += number_size + (2 if version else 0)
        result[at:at + 2] = b"\0\1"
        base = at + 2
        extents = base + base_size
        first = extents + 2 + index_size
        place, size = (base, base_size) if base_size else (first, offset_size)
        value = int.from_bytes(places[place:place + size], "big") + moved
        result[place:place + size] = value.to_bytes(size, "big")
        count = int.from_bytes(places[extents:extents + 2], "big")
        at = extents + 2 + count * (index_size + offset_size + length_size)
    return bytes(result)


def heif(path, bait, *coding):
    """A picture whose data is said to lie in another file."""
    data = plain_heif(path, *coding)
    if data is None:
        return None
    entry = box(b"url ", b"\0\0\0\0" + f"file://{bait}/secret.heic\0".encode())
    outside = box(b"dinf", box(b"dref", b"\0\0\0\0\0\0\0\1" + entry))

    def places(kind, content):
        return lying_elsewhere(content, len(outside)) if kind == b"iloc" else content

    def description(kind, content):
        return content[:4] + rebuilt(content[4:], places, ()) + outside if kind == b"meta" \
            else content
    return rebuilt(data, description, ())


def huge_heif(path, side):
    """A small picture that says it is a large one."""
    def size(kind, content):
        return b"\0\0\0\0" + struct.pack(">II", side, side) if kind == b"ispe" else content

    def description(kind, content):
        return content[:4] + rebuilt(content[4:], size, (b"iprp", b"ipco")) if kind == b"meta" \
            else content
    data = plain_heif(path)
    return None if data is None else rebuilt(data, description, ())


def write_all(folder, bait):
    """Every file that is made here, by name."""
    files = {"drawing.svg": svg(bait), "plain.svg": plain_svg(bait),
             "packed.svgz": gzip.compress(svg(bait)),
             "paper.pdf": pdf(bait), "paths.tif": tiff(bait),
             "address.mov": mov(folder / "address.mov", bait, b"url "),
             "alias.mov": mov(folder / "alias.mov", bait, b"alis"),
             "chapters.mkv": mkv(folder / "chapters.mkv", bait),
             "outside.avif": heif(folder / "outside.avif", bait, "-A"),
             "outside.heic": heif(folder / "outside.heic", bait),
             **{name: text.encode() for name, text in playlists(bait).items()}}
    for name, data in files.items():
        if data is not None:
            (folder / name).write_bytes(data)
    return sorted(name for name, data in files.items() if data is not None)


def lay_out(bait):
    """What the files point to, so that following would succeed."""
    bait.mkdir()
    framefile.write_png(bait / "secret.png", 8, 8, b"\xff" * (8 * 8 * 3))
    (bait / "secret001.png").write_bytes((bait / "secret.png").read_bytes())
    for name in ("secret.txt", "style.css", "more.dtd", "secret.raw"):
        (bait / name).write_text("/* taken */")
    (bait / "other.svg").write_text('<svg xmlns="http://www.w3.org/2000/svg"><g id="part"/></svg>')
    (bait / "secret.pdf").write_bytes(b"%PDF-1.5\n")
    data = film(bait / "secret.mp4", "-c:v", "mpeg4")
    for name in ("secret.mov", "secret.mkv", "secret.tif", "secret.heic"):
        (bait / name).write_bytes(data)
