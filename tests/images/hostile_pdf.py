"""PDFs whose page costs more than a picture may."""

import struct
import zlib

from hostile_bitmaps import zeros_packed

PAGE = "<</Type/Page/Parent 2 0 R/MediaBox[0 0 200 200]/Contents 4 0 R/Resources<<{}>>>>"


def stream(content, entries=""):
    return f"<</Length {len(content)}{entries}>>stream\n".encode() + content + b"\nendstream"


def pdf(resources, content, *others, pages="<</Type/Pages/Kids[3 0 R]/Count 1>>"):
    """`others` are the objects from 5 on."""
    objects = ["<</Type/Catalog/Pages 2 0 R>>", pages, PAGE.format(resources), stream(content), *others]
    text = b"%PDF-1.7\n"
    places = []
    for number, an_object in enumerate(objects, 1):
        places.append(len(text))
        body = an_object if isinstance(an_object, bytes) else an_object.encode()
        text += f"{number} 0 obj\n".encode() + body + b"\nendobj\n"
    table = "".join(f"{place:010} 00000 n \n" for place in places)
    end = f"xref\n0 {len(objects) + 1}\n0000000000 65535 f \n{table}"
    end += f"trailer<</Size {len(objects) + 1}/Root 1 0 R>>\nstartxref\n{len(text)}\n%%EOF\n"
    return text + end.encode()


def with_image(data, entries):
    image = stream(data, "/Type/XObject/Subtype/Image" + entries)
    return pdf("/XObject<</I 5 0 R>>", b"200 0 0 200 0 0 cm /I Do", image)


def tiling_pattern():
    pattern = stream(b"0 0 1 1 re f", "/Type/Pattern/PatternType 1/PaintType 1/TilingType 1/BBox[0 0 1000000 "
                     "1000000]/XStep 0.01/YStep 0.01/Resources<<>>")
    return pdf("/Pattern<</P 5 0 R>>", b"/Pattern cs /P scn 0 0 200 200 re f", pattern)


def masked_image():
    data = zeros_packed(12_000 * 12_000 // 8)
    common = f"/Width 12000/Height 12000/Filter/FlateDecode/BitsPerComponent 1/ColorSpace/DeviceGray"
    image = stream(data, "/Type/XObject/Subtype/Image/SMask 6 0 R" + common)
    mask = stream(data, "/Type/XObject/Subtype/Image" + common)
    return pdf("/XObject<</I 5 0 R>>", b"200 0 0 200 0 0 cm /I Do", image, mask)


def masked_image_of_colours():
    data = zeros_packed(12_000 * 12_000 * 4)
    mask_data = zeros_packed(12_000 * 12_000)
    common = "/Width 12000/Height 12000/Filter/FlateDecode/BitsPerComponent 8"
    image = stream(data, "/Type/XObject/Subtype/Image/SMask 6 0 R/ColorSpace/DeviceCMYK" + common)
    mask = stream(mask_data, "/Type/XObject/Subtype/Image/ColorSpace/DeviceGray" + common)
    return pdf("/XObject<</I 5 0 R>>", b"200 0 0 200 0 0 cm /I Do", image, mask)


def page_cycle():
    return pdf("", b"", "<</Type/Pages/Parent 2 0 R/Kids[2 0 R 5 0 R]/Count 1000000>>",
               pages="<</Type/Pages/Kids[5 0 R 2 0 R]/Count 1000000>>")


def packed_thrice():
    content = zlib.compress(zlib.compress(zeros_packed(4 << 30), 9), 9)
    return with_image(content, "/Width 60000/Height 60000/BitsPerComponent 8/ColorSpace/DeviceGray"
                      "/Filter[/FlateDecode/FlateDecode/FlateDecode]")


def packed_content():
    """A page of 400 million blanks and lines."""
    line = b"0 0 m 200 200 l S\n" * 50_000
    content = zlib.compress(line * 400, 9)
    body = stream(content, "/Filter/FlateDecode")
    page = b"<</Type/Page/Parent 2 0 R/MediaBox[0 0 200 200]/Contents 5 0 R/Resources<<>>>>"
    return pdf("", b"", body, page, pages="<</Type/Pages/Kids[6 0 R]/Count 1>>")


def font_of_itself():
    font = ("<</Type/Font/Subtype/Type3/FontBBox[0 0 9 9]/FontMatrix[1 0 0 1 0 0]/FirstChar 65/LastChar 65"
            "/Widths[9]/Encoding<</Differences[65/A]>>/CharProcs<</A 6 0 R>>/Resources<</Font<</F 5 0 R>>>>>>")
    glyph = stream(b"9 0 d0 BT /F 9 Tf (" + b"A" * 40 + b") Tj ET")
    return pdf("/Font<</F 5 0 R>>", b"BT /F 9 Tf (" + b"A" * 9 + b") Tj ET", font, glyph)


def form_tree():
    """Ten forms that each draw the next ten times."""
    forms = [stream(f"/F{level + 1} Do ".encode() * 10 if level < 10 else b"0 0 9 9 re f",
                    "/Type/XObject/Subtype/Form/BBox[0 0 200 200]/Resources<</XObject<<"
                    + (f"/F{level + 1} {level + 6} 0 R" if level < 10 else "") + ">>>>")
             for level in range(11)]
    return pdf("/XObject<</F0 5 0 R>>", b"/F0 Do", *forms)


def sampled_function():
    function = stream(zeros_packed(1_000_000 * 3), "/FunctionType 0/Domain[0 1 0 1]/Range[0 1 0 1 0 1]/Size[1000 "
                      "1000]/BitsPerSample 8/Filter/FlateDecode")
    shading = "<</ShadingType 1/ColorSpace/DeviceRGB/Domain[0 1 0 1]/Matrix[200 0 0 200 0 0]/Function 5 0 R>>"
    return pdf("/Shading<</S 6 0 R>>", b"/S sh " * 20_000, function, shading)


def box(kind, content):
    return struct.pack(">I4s", 8 + len(content), kind) + content


def jpx_image():
    side = 65_535
    size = struct.pack(">HIIIIIIIIH", 0, side, side, 0, 0, side, side, 0, 0, 1) + b"\7\1\1"
    codestream = b"\xff\x4f\xff\x51" + struct.pack(">H", 2 + len(size)) + size
    codestream += b"\xff\x52" + struct.pack(">H", 12) + bytes([0, 0, 0, 1, 0, 5, 4, 4, 0, 1])
    codestream += b"\xff\x5c" + struct.pack(">H", 19) + b"\x40" + b"\x40" * 16
    codestream += b"\xff\x90" + struct.pack(">HHIBB", 10, 0, 0, 0, 1) + b"\xff\x93" + bytes(500) + b"\xff\xd9"
    data = (box(b"jP  ", b"\r\n\x87\n") + box(b"ftyp", b"jp2 \0\0\0\0jp2 ")
            + box(b"jp2h", box(b"ihdr", struct.pack(">IIHBBBB", side, side, 1, 7, 7, 0, 0))
                  + box(b"colr", b"\1\0\0" + struct.pack(">I", 17))) + box(b"jp2c", codestream))
    return with_image(data, f"/Width {side}/Height {side}/Filter/JPXDecode")


def jbig2_image():
    side = 65_535
    page = struct.pack(">IIIIBH", side, side, 0, 0, 0, 0)
    region = struct.pack(">IIIIB", side, side, 0, 0, 0) + b"\0" + bytes([3, 255, 253, 255, 2, 254, 254, 254])
    region += bytes(2000)
    data = (struct.pack(">IBBBI", 0, 48, 0, 1, len(page)) + page
            + struct.pack(">IBBBI", 1, 38, 0, 1, len(region)) + region)
    return with_image(data, f"/Width {side}/Height {side}/BitsPerComponent 1/ColorSpace/DeviceGray"
                      "/Filter/JBIG2Decode")


FILES = {
    "36-tiling-pattern.pdf": tiling_pattern,
    "37-masked-image.pdf": masked_image,
    "37-masked-image-of-colours.pdf": masked_image_of_colours,
    "38-page-cycle.pdf": page_cycle,
    "39-packed-thrice.pdf": packed_thrice,
    "39-packed-content.pdf": packed_content,
    "40-font-of-itself.pdf": font_of_itself,
    "40-form-tree.pdf": form_tree,
    "41-sampled-function.pdf": sampled_function,
    "42-jpx.pdf": jpx_image,
    "42-jbig2.pdf": jbig2_image,
}
