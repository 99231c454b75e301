"""Bytes on the wire: JSON encoding, error replies, request headers, cookie and body checks."""

import hashlib
import json

from aiohttp import web

COOKIE_NAME = "rb_web_session"


def dumps(value) -> bytes:
    # Sorted keys: the same page must always hash to the same digest, whatever order
    # a test built it in (and this is also what Qt's compact writer produces).
    return json.dumps(value, ensure_ascii=False, separators=(",", ":"), sort_keys=True,
                      allow_nan=False).encode("utf-8")


def digest(data: bytes) -> str:
    return hashlib.sha256(data).hexdigest()


def reply(value, status: int = 200, headers=None) -> web.Response:
    return web.Response(status=status, body=dumps(value), content_type="application/json",
                        headers=headers)


class Reject(Exception):
    """A request refused with a JSON error reply; raised from anywhere inside a handler."""

    def __init__(self, status: int, error: str, detail: str | None = None):
        super().__init__(detail or error)
        self.status = status
        self.body = {"error": error} if detail is None else {"error": error, "detail": detail}

    def response(self) -> web.Response:
        return reply(self.body, self.status)


def unauthorized() -> Reject:
    return Reject(401, "unauthorized", "Sign in first.")


def raw_headers(request: web.BaseRequest) -> list[tuple[str, str]]:
    """Headers as the client spelled them (aiohttp's own view folds the case)."""
    return [(name.decode("latin-1"), value.decode("utf-8", "replace"))
            for name, value in request.raw_headers]


def header_dict(request: web.BaseRequest) -> dict[str, str]:
    out: dict[str, str] = {}
    for name, value in raw_headers(request):
        out[name] = f"{out[name]}, {value}" if name in out else value
    return out


def session_cookie(request: web.BaseRequest) -> str | None:
    """The value of rb_web_session, parsed by hand: no other cookie is ever looked at,
    and a malformed neighbour must not hide it (SimpleCookie gives up on those)."""
    for name, value in raw_headers(request):
        if name.lower() != "cookie":
            continue
        for item in value.split(";"):
            key, eq, val = item.strip().partition("=")
            if eq and key == COOKIE_NAME and val:
                return val
    return None


def media_type(request: web.BaseRequest) -> tuple[str, dict[str, str]]:
    """Content-Type split into a lower-case type and its parameters (quotes removed)."""
    text = request.headers.get("Content-Type", "")
    kind, _, rest = text.partition(";")
    params: dict[str, str] = {}
    for item in rest.split(";"):
        key, eq, val = item.strip().partition("=")
        if eq:
            val = val.strip()
            if len(val) >= 2 and val[0] == val[-1] == '"':
                val = val[1:-1]
            params[key.strip().lower()] = val
    return kind.strip().lower(), params


def _no_constants(name: str):
    raise ValueError(f"{name} is not JSON")


def parse_object(data: bytes) -> dict:
    """A JSON object from UTF-8 bytes, or Reject(400, bad_json)."""
    if not data:
        raise Reject(400, "bad_json", "The body is empty; a JSON object is expected.")
    try:
        value = json.loads(data.decode("utf-8"), parse_constant=_no_constants)
    except UnicodeDecodeError:
        raise Reject(400, "bad_json", "The body is not UTF-8 text.") from None
    except ValueError as error:
        raise Reject(400, "bad_json", f"The body is not valid JSON: {error}") from None
    if not isinstance(value, dict):
        raise Reject(400, "bad_json", "The body must be a JSON object.")
    return value


async def json_body(request: web.BaseRequest, optional: bool = False) -> dict:
    """The request's JSON object body, held to what the hosted service accepts."""
    data = await request.read()
    if optional and not data:
        return {}
    kind, params = media_type(request)
    if kind != "application/json":
        raise Reject(415, "unsupported_media_type")
    charset = params.get("charset", "utf-8").lower()
    if charset not in ("utf-8", "utf8"):
        raise Reject(415, "unsupported_media_type")
    return parse_object(data)


def text_or_empty(data: bytes) -> str:
    try:
        return data.decode("utf-8")
    except UnicodeDecodeError:
        return ""


def seconds_text(value: float) -> str:
    """2 -> "2", 0.5 -> "0.5": what a server would put in a header."""
    number = float(value)
    return str(int(number)) if number.is_integer() else repr(number)
