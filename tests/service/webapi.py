"""The service's own endpoints under /webapi/."""

import json
import re
import urllib.parse
from dataclasses import dataclass

from aiohttp import WSMsgType, web

import chat
import chatapi
import pushreport
import voicelive
import voicenotes
import voiceturns
import features
import workspace
from state import State, User
from wire import (COOKIE_NAME, Reject, digest, dumps, header_dict, json_body, reply,
                  seconds_text, session_cookie, text_or_empty, unauthorized)

MAX_WS_MESSAGE = 8 * 1024 * 1024
MAX_BIG_REPLY = 64 * 1024 * 1024


@dataclass
class Call:
    request: web.Request
    state: State
    path: str  # below "webapi/", decoded, no query
    user: User | None = None
    cookie: str | None = None
    match: re.Match | None = None  # for a route with a variable part


def _signed_in(call: Call, user: User, body: dict) -> web.Response:
    cookie = call.state.open_session(user.name)
    response = reply(body)
    response.headers["Set-Cookie"] = f"{COOKIE_NAME}={cookie}; Path=/; HttpOnly; SameSite=Lax"
    return response


async def login(call: Call) -> web.Response:
    body = await json_body(call.request)
    username, password = body.get("username"), body.get("password")
    if not isinstance(username, str) or not isinstance(password, str):
        raise Reject(400, "bad_request", "username and password must be strings.")
    user = call.state.users.get(username)
    # An account made without a password can only be entered by a sign-in link.
    if user is None or not user.password or user.password != password:
        raise Reject(401, "bad_credentials", "Wrong user name or password.")
    return _signed_in(call, user, {"ok": True, "user": user.name, "role": user.role})


async def token_session(call: Call) -> web.Response:
    body = await json_body(call.request)
    token = body.get("token")
    if not isinstance(token, str):
        raise Reject(400, "bad_request", "token must be a string.")
    user = call.state.redeem(token)
    if user is None:
        raise Reject(401, "bad_token", "This sign-in link is no longer valid.")
    return _signed_in(call, user, {"ok": True, "user": user.name})


async def logout(call: Call) -> web.Response:
    await json_body(call.request, optional=True)
    call.state.sessions.pop(call.cookie, None)
    return reply({"ok": True})


async def delete_account(call: Call) -> web.Response:
    await json_body(call.request)
    call.state.delete_user(call.user.name)
    return reply({"deleted": True})


async def me(call: Call) -> web.Response:
    user = call.user
    return reply({
        "authenticated": True, "user": user.name, "role": user.role, "email": user.email,
        "pages": user.pages, "voice_live": user.voice_live,
        "workspace": {"id": user.workspace_id, "name": user.workspace_name},
    })


async def prefs(call: Call) -> web.Response:
    stored = call.state.prefs.setdefault(call.user.name, {})
    if call.request.method == "GET":
        return reply({"prefs": stored})
    body = await json_body(call.request)
    # All or nothing: one bad value leaves every pref as it was.
    if any(not isinstance(value, str) for value in body.values()):
        raise Reject(400, "bad_pref")
    stored.update(body)
    return reply({"ok": True, "prefs": stored})


async def echo(call: Call) -> web.Response:
    request = call.request
    query_string = request.raw_path.partition("?")[2]
    query: dict[str, str] = {}
    for key, value in urllib.parse.parse_qsl(query_string, keep_blank_values=True):
        query.setdefault(key, value)  # the first of repeated keys, like QUrlQuery
    data = await request.read()
    return reply({
        "method": request.method, "path": request.path[1:],
        "raw_path": request.raw_path.partition("?")[0][1:], "query_string": query_string,
        "query": query, "headers": header_dict(request), "body": text_or_empty(data),
    })


async def contact(call: Call) -> web.Response:
    return reply({"ok": True, "received": await json_body(call.request)})


async def status(call: Call) -> web.Response:
    return reply({"ok": True, "version": "1"})


async def socket(call: Call) -> web.StreamResponse:
    """The chat socket: a greeting, then every frame of every conversation of the user."""
    request = call.request
    chat.from_query(request.query)  # a malformed conversation is refused before the upgrade
    ws = web.WebSocketResponse(max_msg_size=MAX_WS_MESSAGE + 1, autoping=True)
    if not ws.can_prepare(request).ok:
        raise Reject(400, "not_websocket", "This address only speaks WebSocket.")
    await ws.prepare(request)
    if "log_entry" in request:  # the socket may stay open for the whole test
        request["log_entry"]["status"] = 101
    hub = call.state.hub
    try:
        # Harmless to a chat client, which skips frame types it does not know.
        await ws.send_str(dumps({"type": "hello", "user": call.user.name}).decode())
        hub.add(ws, call.user.name, request)
        async for message in ws:
            if message.type == WSMsgType.TEXT:
                answer = _socket_answer(message.data)
                if answer is not None:
                    await ws.send_str(answer)
    finally:
        hub.remove(ws)
    return ws


def _socket_answer(text: str) -> str | None:
    """Only {"type":"big","size":N} is answered (the transport's large-message test)."""
    try:
        value = json.loads(text)
    except ValueError:
        return None
    if isinstance(value, dict) and value.get("type") == "big":
        size = value.get("size")
        frame = len(dumps({"data": "", "type": "big"}))
        if type(size) is not int or not frame <= size <= MAX_BIG_REPLY:
            return dumps({"type": "error",
                          "detail": f"size must be an integer from {frame} to {MAX_BIG_REPLY}."
                          }).decode()
        return dumps({"data": "x" * (size - frame), "type": "big"}).decode()
    return None


async def page(call: Call) -> web.Response:
    path = "webapi/" + call.path
    download = None
    if call.path.startswith("raw/"):
        path = "webapi/files/" + call.path[len("raw/"):]
    elif call.path.startswith("files/"):
        download = call.path[len("files/"):]
    stored = call.state.page(path, call.user.name)
    if stored is None:
        raise Reject(404, "not_found")
    response = web.Response(body=stored.body)
    response.headers["Content-Type"] = stored.content_type
    if download is not None:
        name = urllib.parse.quote(download, safe="")
        response.headers["Content-Disposition"] = f"attachment; filename*=UTF-8''{name}"
    refreshing = stored.take_refreshing()
    if refreshing is not None:
        response.headers["X-RB-Refreshing"] = seconds_text(refreshing)
    return response


# path below "webapi/" -> (open to everyone, {method: handler})
ROUTES = {
    "auth/login": (True, {"POST": login}),
    "auth/session": (True, {"POST": token_session}),
    "public/contact": (True, {"POST": contact}),
    "public/status": (True, {"GET": status}),
    "auth/logout": (False, {"POST": logout}),
    "auth/delete-account": (False, {"POST": delete_account}),
    "me": (False, {"GET": me}),
    "prefs": (False, {"GET": prefs, "POST": prefs}),
    "upload": (False, {"POST": chatapi.upload}),
    "ws": (False, {"GET": socket}),
    "messages": (False, {"GET": chatapi.messages}),
    "chat": (False, {"POST": chatapi.send}),
    "router/feedback": (False, {"POST": chatapi.feedback}),
    **pushreport.ROUTES,
    **workspace.ROUTES,
    **voicelive.ROUTES,
    **voiceturns.ROUTES,
}
# Paths with a variable part, all for signed-in users.
PATTERNS = [
    (re.compile(r"runs/([^/]+)"), {"GET": chatapi.run}),
    (re.compile(r"tasks/p-([1-9][0-9]{0,17})/stop"), {"POST": chatapi.stop_task}),
    *workspace.PATTERNS,
] + [(re.compile(pattern), methods) for pattern, methods in voicenotes.PATTERNS]
ROUTES.update(features.ROUTES)
PATTERNS += features.PATTERNS


def _route(call: Call) -> tuple[bool, dict | None]:
    if call.path in ROUTES:
        return ROUTES[call.path]
    for pattern, methods in PATTERNS:
        call.match = pattern.fullmatch(call.path)
        if call.match:
            return False, methods
    return False, None


async def respond(request: web.Request, state: State) -> web.StreamResponse:
    call = Call(request, state, request.path[len("/webapi/"):])
    is_open, methods = _route(call)
    if not is_open:
        call.cookie = session_cookie(request)
        call.user = state.user_of(call.cookie)
        if call.user is None:
            raise unauthorized()
    if methods is not None:
        handler = methods.get(request.method)
        if handler is None:
            raise Reject(405, "method_not_allowed",
                         f"Use {' or '.join(methods)} for webapi/{call.path}.")
    elif call.path == "echo" or call.path.startswith("echo/"):
        handler = echo
    elif request.method == "GET":
        handler = page
    else:
        raise Reject(404, "not_found")
    return _conditional(request, await handler(call))


def _conditional(request: web.Request, response: web.StreamResponse) -> web.StreamResponse:
    """304 when the client already holds exactly these bytes."""
    have = request.headers.get("X-RB-Have")
    if (request.method != "GET" or have is None or response.status != 200
            or not isinstance(response, web.Response) or not isinstance(response.body, bytes)
            or have != digest(response.body)):
        return response
    unchanged = web.Response(status=304)
    if "X-RB-Refreshing" in response.headers:
        unchanged.headers["X-RB-Refreshing"] = response.headers["X-RB-Refreshing"]
    return unchanged
