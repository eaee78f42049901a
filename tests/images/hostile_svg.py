"""SVGs that cost more than a picture may, or are not what they say."""

import base64
import zlib

HEAD = '<svg xmlns="http://www.w3.org/2000/svg" xmlns:xlink="http://www.w3.org/1999/xlink" '
SMALL = HEAD + 'width="64" height="64">'
SCREEN = HEAD + 'width="7680" height="4320">'  # drawn at natural size, that is 127 MiB


def svg(content, head=SMALL):
    return (head + content + "</svg>").encode()


def filtered(primitives, head=SCREEN):
    return svg('<filter id="f" x="0" y="0" width="1" height="1">' + primitives
               + '</filter><rect width="7680" height="4320" fill="#48c" filter="url(#f)"/>', head)


def nested_uses():
    levels = "".join(f'<g id="l{level}">' + f'<use xlink:href="#l{level - 1}"/>' * 10 + "</g>"
                     for level in range(1, 11))
    return svg(f'<defs><g id="l0"><rect width="9" height="9"/></g>{levels}</defs><use xlink:href="#l10"/>')


def use_cycle():
    return svg('<g id="a"><use xlink:href="#b"/></g><g id="b"><use xlink:href="#a"/><use xlink:href="#b"/></g>')


def dashes():
    return svg('<path d="M0 9H1000000000" stroke="#000" stroke-width="3" stroke-dasharray="0.001"/>')


def many_dashes():
    paths = '<path d="M0 9H99999999" stroke="#000" stroke-dasharray=".01"/>' * 3
    return svg(paths)  # 240 bytes


def nested_patterns():
    patterns = "".join(
        f'<pattern id="p{level}" width="3" height="3" patternUnits="userSpaceOnUse">'
        f'<rect width="64" height="64" fill="url(#p{level - 1})"/><circle r="2"/></pattern>'
        for level in range(1, 13))
    return svg(f'<linearGradient id="p0"/>{patterns}<rect width="64" height="64" fill="url(#p12)"/>')


def nested_masks():
    masks = "".join(
        f'<mask id="m{level}"><g mask="url(#m{level - 1})"><rect width="64" height="64" fill="#fff" '
        f'mask="url(#m{level - 1})"/></g></mask>' for level in range(1, 41))
    return svg(f'<mask id="m0"/>{masks}<rect width="64" height="64" mask="url(#m40)"/>')


def turbulence():
    return filtered('<feTurbulence baseFrequency="0.37" numOctaves="10"/>')


def blur():
    return filtered('<feGaussianBlur stdDeviation="100000"/>')


def morphology():
    return filtered('<feMorphology operator="dilate" radius="1000000"/>')


def tiles():
    step = '<feTile/><feImage xlink:href="#r"/><feComposite operator="arithmetic" k2="1" k3="1"/>'
    return filtered(step * 400)


def opacity_groups():
    return svg('<g opacity="0.99">' * 200 + '<rect width="7680" height="4320"/>' + "</g>" * 200, SCREEN)


def nested_groups():
    return svg("<g>" * 200_000 + "</g>" * 200_000)


def entities():
    names = "abcdefghijkl"
    declared = '<!ENTITY a "' + "x" * 100 + '">' + "".join(
        f'<!ENTITY {name} "' + f"&{before};" * 10 + '">' for before, name in zip(names, names[1:]))
    return f'<?xml version="1.0"?><!DOCTYPE svg [{declared}]>'.encode() + svg("<text>&l;</text>")


def style_rules():
    rules = "".join(f"* g{{fill:#{number:06x}}}" for number in range(650_000))
    return svg(f"<style>{rules}</style>" + "<g/>" * 10_000)


def long_path():
    # Of what the parser still takes for an attribute.
    return svg(('<path fill="none" stroke="#000" d="M0 0' + "L9 1 1 9 " * 880_000 + '"/>') * 2)


def spaced_text():
    return svg('<text y="30" letter-spacing="1e9">' + "\u0415w" * 50_000 + "</text>")


def huge_view_box():
    return svg('<path d="M0 0L1e30 1e30" stroke="#000" stroke-width="1e29" stroke-dasharray="1"/>',
               HEAD + 'width="64" height="64" viewBox="-1e30 -1e30 2e30 2e30">')


def view_box_without_numbers():
    return svg("<rect/>", HEAD + 'width="NaN" height="inf" viewBox="0 0 NaN 1e999">')


def packed():
    """What would unpack to 15 GiB: one packed MiB of blanks, again and again."""
    packer = zlib.compressobj(9, zlib.DEFLATED, -15)
    head = packer.compress(SMALL.encode()) + packer.flush(zlib.Z_FULL_FLUSH)
    blanks = packer.compress(b" " * (1 << 20)) + packer.flush(zlib.Z_FULL_FLUSH)
    return b"\x1f\x8b\x08\0\0\0\0\0\2\3" + head + blanks * ((15 << 20) // len(blanks))


def data_in_data():
    inner = svg('<rect width="64" height="64"/>')
    for _ in range(20):
        inner = svg('<image width="64" height="64" xlink:href="data:image/svg+xml;base64,'
                    + base64.b64encode(inner).decode() + '"/>')
    return inner


def image_bomb():
    """A bitmap that claims to be large, many times."""
    from hostile_bitmaps import png_of_one_colour  # pylint: disable=import-outside-toplevel
    image = base64.b64encode(png_of_one_colour(16_000, 16_000)).decode()
    return svg(f'<image width="64" height="64" xlink:href="data:image/png;base64,{image}"/>' * 8)


def small_oddities():
    """Of a few hundred bytes each: empty areas, endless ones, and what refers to itself."""
    cases = {
        "empty-pattern": '<pattern id="p" width="1e-30" height="1e-30"><rect width="1" height="1"/></pattern>'
                         '<rect width="64" height="64" fill="url(#p)"/>',
        "pattern-of-itself": '<pattern id="p" width="1" height="1"><rect width="9" height="9" '
                             'fill="url(#p)"/></pattern><rect width="64" height="64" fill="url(#p)"/>',
        "mask-of-itself": '<mask id="m"><rect width="64" height="64" mask="url(#m)"/></mask>'
                          '<rect width="64" height="64" mask="url(#m)"/>',
        "convolution": '<filter id="f"><feConvolveMatrix order="99999 99999" kernelMatrix="1"/></filter>'
                       '<rect width="64" height="64" filter="url(#f)"/>',
        "endless-transform": '<g transform="scale(1e300) scale(1e300) skewX(90)"><circle r="1e300"/></g>',
        "arcs": '<path stroke="#000" d="M0 0A1e-300 1e300 1e308 1 1 1e308 1e308A0 0 0 0 0 NaN 1"/>',
        "fine-pattern": '<pattern id="p" width="0.0001" height="0.0001" patternUnits="userSpaceOnUse">'
                        '<rect width="1" height="1"/></pattern><rect width="64" height="64" fill="url(#p)"/>',
        "markers": '<marker id="m" markerWidth="9e9" markerHeight="9e9"><path d="M0 0h9v9z" marker-mid='
                   '"url(#m)"/></marker><path d="M0 0' + "h1v1" * 99 + '" marker-mid="url(#m)"/>',
    }
    return {f"19-{name}.svg": (lambda content: lambda: svg(content))(content)
            for name, content in cases.items()}


FILES = {
    "01-nested-uses.svg": nested_uses,
    "02-use-cycle.svg": use_cycle,
    "03-dashes.svg": dashes,
    "03-dashes-in-240-bytes.svg": many_dashes,
    "04-nested-patterns.svg": nested_patterns,
    "05-nested-masks.svg": nested_masks,
    "06-turbulence.svg": turbulence,
    "07-blur.svg": blur,
    "08-morphology.svg": morphology,
    "09-tiles.svg": tiles,
    "10-opacity-groups.svg": opacity_groups,
    "11-nested-groups.svg": nested_groups,
    "12-entities.svg": entities,
    "13-style-rules.svg": style_rules,
    "14-long-path.svg": long_path,
    "15-spaced-text.svg": spaced_text,
    "16-huge-view-box.svg": huge_view_box,
    "16-view-box-without-numbers.svg": view_box_without_numbers,
    "17-packed.svgz": packed,
    "18-data-in-data.svg": data_in_data,
    "18-image-bomb.svg": image_bomb,
    **small_oddities(),
}
