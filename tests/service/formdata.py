"""A deliberately strict multipart/form-data reader.

Lenient parsers quietly accept bodies that real front proxies reject (bare LF line ends,
a missing closing boundary, junk before the first part); this one refuses them so the
client's encoder cannot drift.
"""

import re
from dataclasses import dataclass

# RFC 2046 boundary characters; the last one may not be a space.
_BOUNDARY = re.compile(r"^[0-9A-Za-z'()+_,\-./:=? ]{0,69}[0-9A-Za-z'()+_,\-./:=?]$")
_PARAM = re.compile(r'\s*;\s*([A-Za-z0-9_*-]+)\s*=\s*(?:"([^"]*)"|([^";\s]+))')


class Malformed(Exception):
    pass


@dataclass
class Part:
    name: str
    filename: str | None
    content_type: str | None
    data: bytes


def check_boundary(boundary: str | None) -> bytes:
    if not boundary:
        raise Malformed("The Content-Type has no boundary.")
    if not _BOUNDARY.match(boundary):
        raise Malformed(f"The boundary {boundary!r} is not a valid multipart boundary.")
    return boundary.encode("ascii")


def parse(body: bytes, boundary: str | None) -> list[Part]:
    delimiter = b"--" + check_boundary(boundary)
    if not body.startswith(delimiter):
        raise Malformed("The body does not start with the boundary.")
    pos = len(delimiter)
    if body.startswith(b"--", pos):
        raise Malformed("The body has no parts.")
    parts = []
    while True:
        if not body.startswith(b"\r\n", pos):
            raise Malformed("A boundary line does not end with CRLF.")
        pos += 2
        end = body.find(b"\r\n" + delimiter, pos)
        if end < 0:
            raise Malformed("The last part is not closed by the boundary.")
        parts.append(_part(body[pos:end], len(parts) + 1))
        pos = end + 2 + len(delimiter)
        if body.startswith(b"--", pos):
            if body[pos + 2:] not in (b"", b"\r\n"):
                raise Malformed("There is data after the closing boundary.")
            return parts


def _part(chunk: bytes, number: int) -> Part:
    if chunk.startswith(b"\r\n"):
        raise Malformed(f"Part {number} has no headers.")
    split = chunk.find(b"\r\n\r\n")
    if split < 0:
        raise Malformed(f"Part {number} has no blank line after its headers.")
    headers: dict[str, str] = {}
    for line in chunk[:split].split(b"\r\n"):
        if b"\r" in line or b"\n" in line:
            raise Malformed(f"A header line of part {number} does not end with CRLF.")
        name, colon, value = line.partition(b":")
        if not colon or not name or name != name.strip():
            raise Malformed(f"Part {number} has a malformed header line.")
        try:
            key, text = name.decode("ascii").lower(), value.decode("utf-8").strip()
        except UnicodeDecodeError:
            raise Malformed(f"A header of part {number} is not UTF-8 text.") from None
        if key in headers:
            raise Malformed(f"Part {number} repeats the header {name.decode()}.")
        headers[key] = text
    disposition = headers.get("content-disposition")
    if disposition is None:
        raise Malformed(f"Part {number} has no Content-Disposition.")
    params = _disposition(disposition, number)
    if "name" not in params:
        raise Malformed(f"The Content-Disposition of part {number} has no name.")
    return Part(params["name"], params.get("filename"), headers.get("content-type"),
                chunk[split + 4:])


def _disposition(value: str, number: int) -> dict[str, str]:
    if not value.lower().startswith("form-data"):
        raise Malformed(f"The Content-Disposition of part {number} is not form-data.")
    rest = value[len("form-data"):]
    params: dict[str, str] = {}
    pos = 0
    while pos < len(rest):
        found = _PARAM.match(rest, pos)
        if not found:
            raise Malformed(f"The Content-Disposition of part {number} is malformed.")
        key = found.group(1).lower()
        if key in params:
            raise Malformed(f"The Content-Disposition of part {number} repeats {key}.")
        params[key] = found.group(2) if found.group(2) is not None else found.group(3)
        pos = found.end()
    return params


def upload(parts: list[Part]) -> tuple[Part, dict[str, str]]:
    """The one file part of an upload and its text fields."""
    files = [part for part in parts if part.filename is not None]
    if not files:
        raise Malformed("The upload has no file part.")
    if len(files) > 1:
        raise Malformed("The upload has more than one file part.")
    if not files[0].content_type:
        raise Malformed("The file part has no Content-Type.")
    fields: dict[str, str] = {}
    for part in parts:
        if part.filename is not None:
            continue
        if part.name in fields:
            raise Malformed(f"The field {part.name!r} appears twice.")
        try:
            fields[part.name] = part.data.decode("utf-8")
        except UnicodeDecodeError:
            raise Malformed(f"The field {part.name!r} is not UTF-8 text.") from None
    return files[0], fields
