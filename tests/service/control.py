"""The test-only control interface under /_control/: no sign-in, never logged, never faulted."""

import base64
import json

from aiohttp import web

import chatcontrol
import checks
import voicelive
import voicenotes
import voiceturns
from state import Fault, Page, State, User
from wire import Reject, dumps, parse_object, reply, text_or_empty

# Bodies a front proxy or framework sends when the handler gives none.
_EDGE = {502: "Bad Gateway", 503: "Service Unavailable", 504: "Gateway Timeout",
         520: "Web Server Returned an Unknown Error", 521: "Web Server Is Down",
         522: "Connection Timed Out", 523: "Origin Is Unreachable", 524: "A Timeout Occurred"}


def _bad(detail: str) -> Reject:
    return Reject(400, "bad_control", detail)


def _get(body: dict, key: str, kinds, default=None, required=False):
    return checks.take(body, key, kinds, default, required, "bad_control")


def fault_reply(fault: Fault) -> web.Response:
    body, content_type = fault.body, fault.content_type
    if body is None:
        if fault.status in _EDGE:
            title = f"{fault.status} {_EDGE[fault.status]}"
            body = f"<html><body><h1>{title}</h1></body></html>".encode()
            content_type = content_type or "text/html"
        elif fault.status == 429:
            body = dumps({"error": "rate_limited", "detail": "Slow down."})
        elif fault.status == 401:
            body = dumps({"error": "unauthorized"})
        else:
            body = b""
    if body and content_type is None:
        content_type = "application/json"
    response = web.Response(status=fault.status, body=body or None)
    if content_type:
        response.headers["Content-Type"] = content_type
    for name, value in fault.headers.items():
        response.headers[name] = value
    return response


def _fault(state: State, body: dict) -> web.Response:
    status = _get(body, "status", int)
    if status is not None and not 200 <= status <= 599:
        raise _bad("status must be from 200 to 599.")
    raw = body.get("body")
    if raw is not None and not isinstance(raw, str):
        raw = dumps(raw).decode()  # a JSON value given as is, for convenience
    headers = _get(body, "headers", dict, {})
    delay = _get(body, "delay", (int, float), 0.0)
    if delay < 0:
        raise _bad("delay must not be negative.")
    fault = Fault(
        match=_get(body, "match", str, required=True).lstrip("/"),
        method=_get(body, "method", str), status=status,
        body=None if raw is None else raw.encode("utf-8"),
        content_type=_get(body, "content_type", str),
        headers={str(k): v if isinstance(v, str) else json.dumps(v) for k, v in headers.items()},
        delay=float(delay), drop=_get(body, "drop", bool, False), after=_get(body, "after", str),
        drop_mid_body=_get(body, "drop_mid_body", bool, False), times=_get(body, "times", int, 1))
    if fault.times == 0 or fault.times < -1:
        raise _bad("times must be positive, or -1 for ever.")
    if fault.after not in (None, "drop", "hold"):
        raise _bad('after can only be "drop" or "hold".')
    if fault.after == "hold" and not fault.delay:
        raise _bad('after "hold" needs a delay: how long the answer is held.')
    endings = [fault.status is not None or fault.drop, fault.after is not None,
               fault.drop_mid_body]
    if sum(endings) > 1:
        raise _bad("Choose one of status or drop, after, and drop_mid_body.")
    if not any(endings) and not fault.delay:
        raise _bad("A fault needs a status, a delay, drop, after or drop_mid_body.")
    state.faults.append(fault)
    return reply({"ok": True, "faults": len(state.faults)})


def _page(state: State, body: dict) -> web.Response:
    path = _get(body, "path", str, required=True).lstrip("/").partition("?")[0]
    if not path.startswith("webapi/"):
        raise _bad("path must begin with webapi/.")
    user = _get(body, "user", str)
    key = (path, user)
    if body.get("remove") is True:
        state.pages.pop(key, None)
        return reply({"ok": True})
    content_type = _get(body, "content_type", str)
    if "body" in body:
        page = Page(dumps(body["body"]), content_type or "application/json")
    elif "raw" in body:
        page = Page(_get(body, "raw", str).encode("utf-8"),
                    content_type or "text/plain; charset=utf-8")
    elif "raw_b64" in body:
        try:
            data = base64.b64decode(_get(body, "raw_b64", str), validate=True)
        except ValueError:
            raise _bad("raw_b64 is not base64.") from None
        page = Page(data, content_type or "application/octet-stream")
    elif key in state.pages:
        page = state.pages[key]  # only the refreshing mark changes
    else:
        raise _bad(f"There is no page {path} to mark; give body, raw or raw_b64.")
    refreshing = _get(body, "refreshing", (int, float))
    if refreshing is not None and refreshing < 0:
        raise _bad("refreshing must not be negative.")
    page.refreshing = None if refreshing is None else float(refreshing)
    page.refreshing_times = _get(body, "refreshing_times", int, -1)
    state.pages[key] = page
    return reply({"ok": True})


def _user(state: State, body: dict) -> web.Response:
    name = _get(body, "user", str, required=True)
    if not name:
        raise _bad("user must not be empty.")
    pages = _get(body, "pages", list, [])
    if not all(isinstance(item, str) for item in pages):
        raise _bad("pages must be a list of strings.")
    workspace = _get(body, "workspace", (str, dict), f"ws-{name}")
    if isinstance(workspace, dict):
        ws_id, ws_name = workspace.get("id", f"ws-{name}"), workspace.get("name", "")
        if not isinstance(ws_id, str) or not isinstance(ws_name, str):
            raise _bad("workspace id and name must be strings.")
    else:
        ws_id, ws_name = workspace, f"{name}'s workspace"
    state.users[name] = User(name, _get(body, "password", str, ""), _get(body, "role", str, "user"),
                             _get(body, "email", str, ""), list(pages),
                             _get(body, "voice_live", bool, False), ws_id, ws_name)
    return reply({"ok": True})


def _known_user(state: State, body: dict) -> str:
    name = _get(body, "user", str, required=True)
    if name not in state.users:
        raise Reject(404, "no_such_user", f"There is no user {name}.")
    return name


def _logged(entry: dict) -> dict:
    body = entry["body"]
    return {**entry, "body": text_or_empty(body),
            "body_b64": base64.b64encode(body).decode("ascii")}


async def handle(request: web.Request, state: State) -> web.Response:
    action = request.path[len("/_control/"):]
    method = request.method
    data = await request.read()
    # The fixture is not the client under test: any content type, an empty body means {}.
    body = parse_object(data) if data.strip() else {}
    if (method, action) == ("POST", "reset"):
        state.reset()
        return reply({"ok": True})
    if (method, action) == ("POST", "fault"):
        return _fault(state, body)
    if (method, action) == ("DELETE", "faults"):
        state.faults.clear()
        return reply({"ok": True})
    if (method, action) == ("POST", "page"):
        return _page(state, body)
    if (method, action) == ("POST", "token"):
        return reply({"token": state.make_token(_known_user(state, body))})
    if (method, action) == ("POST", "expire"):
        return reply({"ok": True, "ended": state.end_sessions(_known_user(state, body))})
    if (method, action) == ("POST", "user"):
        return _user(state, body)
    if (method, action) == ("GET", "log"):
        return reply({"requests": [_logged(entry) for entry in state.log]})
    if (method, action) == ("DELETE", "log"):
        state.log.clear()
        return reply({"ok": True})
    if (method, action) == ("GET", "sessions"):
        return reply({"sessions": [{"user": user, "cookie": cookie}
                                   for cookie, user in state.sessions.items()]})
    live = await voicelive.handle_control(method, action, body, request.query, state)
    if live is not None:
        return live
    voice = (voicenotes.handle_control(method, action, body, state)
             or voiceturns.handle_control(method, action, body, state))
    if voice is not None:
        return voice
    chat = await chatcontrol.handle(method, action, body, request.query, state)
    if chat is not None:
        return chat
    raise Reject(404, "not_found", f"No control action {method} {action}.")
