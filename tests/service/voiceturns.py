"""Voice notes the user sends: webapi/voice (multipart) and webapi/voice/status.

A note is "heard" as a fixed text, or as the text a test gave through
POST /_control/voice/transcript {user, text}. With POST /_control/voice/processing
{user, asks} the next submitted notes are answered early ({"processing": true}) and their
status stays "processing" for that many status asks before the turn is taken in."""

import re

from aiohttp import web

import chat
import checks
import formdata
import turns
from wire import Reject, media_type, reply

HEARD = "Hello from a voice note."
_FLAG = ("0", "1")
_NUMBER = re.compile(r"-?[0-9]+(\.[0-9]+)?([eE][-+]?[0-9]+)?")
# Every field the client may send, and whether it must.
_FIELDS = {"peak": True, "submit": True, "device": True, "voice_reply": False,
           "reply_to_id": False, "early_ack": False, "reprocess": False, "queued_at": False,
           "client_request_id": False, "conversation_id": False, "project_id": False}


class Notes:
    def __init__(self):
        self.heard = HEARD
        self.slow_asks = 0  # status asks a note stays "processing"; 0: answered at once
        self.waiting: dict[str, dict] = {}  # client_request_id -> {"asks", "name", "turn"}
        self.received: list[dict] = []  # the fields of every note, for tests


def _notes(account) -> Notes:
    if not hasattr(account, "voice_notes"):
        account.voice_notes = Notes()
    return account.voice_notes


def _flag(fields: dict, key: str) -> bool:
    value = fields.get(key, "0")
    if value not in _FLAG:
        raise Reject(400, "bad_request", f"{key} must be 0 or 1.")
    return value == "1"


def _check(part: formdata.Part, fields: dict) -> None:
    if part.name != "audio":
        raise Reject(400, "bad_request", "The recording must be the part named audio.")
    if not (part.content_type or "").startswith("audio/"):
        raise Reject(400, "bad_audio", "The recording must have an audio/ type.")
    if len(part.data) < 44 or part.data[:4] != b"RIFF" or part.data[8:12] != b"WAVE":
        raise Reject(400, "bad_audio", "The recording is not a WAV file.")
    for key in fields:
        if key not in _FIELDS:
            raise Reject(400, "bad_request", f"Unknown field {key!r}.")
    for key, needed in _FIELDS.items():
        if needed and key not in fields:
            raise Reject(400, "bad_request", f"{key} is required.")
    if fields["device"] != "iphone-native":
        raise Reject(400, "bad_request", "device must be iphone-native.")
    if not _NUMBER.fullmatch(fields["peak"]) or not 0 <= float(fields["peak"]) <= 1:
        raise Reject(400, "bad_request", "peak must be a number from 0 to 1.")
    if "queued_at" in fields and not _NUMBER.fullmatch(fields["queued_at"]):
        raise Reject(400, "bad_request", "queued_at must be seconds since 1970.")
    for key in ("submit", "voice_reply", "early_ack", "reprocess"):
        _flag(fields, key)


async def voice(call) -> web.Response:
    kind, params = media_type(call.request)
    if kind != "multipart/form-data":
        raise Reject(415, "unsupported_media_type")
    try:
        part, fields = formdata.upload(formdata.parse(await call.request.read(),
                                                      params.get("boundary")))
    except formdata.Malformed as error:
        raise Reject(400, "bad_multipart", str(error)) from None
    _check(part, fields)
    name = chat.agree([chat.from_query(call.request.query),
                       chat.named(fields.get("conversation_id"), fields.get("project_id"), False)])
    account = call.state.account(call.user.name)
    notes = _notes(account)
    notes.received.append(fields)
    if not _flag(fields, "submit"):
        return reply({"ok": True, "text": notes.heard})
    request_id = fields.get("client_request_id") or None
    if request_id is None:
        raise Reject(400, "bad_request", "A submitted note needs its client_request_id.")
    turn = turns.Turn(notes.heard, request_id, fields.get("reply_to_id") or None,
                      _flag(fields, "voice_reply"))
    if request_id in account.replies:
        return reply({**account.replies[request_id], "text": notes.heard})
    if notes.slow_asks > 0 and _flag(fields, "early_ack"):
        notes.waiting.setdefault(request_id, {"asks": notes.slow_asks, "name": name, "turn": turn})
        return reply({"ok": True, "processing": True})
    answer = await turns.accept(call.state, call.user.name, name, turn)
    return reply({**answer, "text": notes.heard})


async def status(call) -> web.Response:
    if call.request.headers.get("Content-Type", "") != "application/json":
        raise Reject(400, "bad_request", "The status check carries Content-Type application/json.")
    request_id = call.request.query.get("client_request_id", "")
    if not request_id:
        raise Reject(400, "bad_request", "client_request_id is required.")
    account = call.state.account(call.user.name)
    notes = _notes(account)
    waiting = notes.waiting.get(request_id)
    if waiting is not None:
        waiting["asks"] -= 1
        if waiting["asks"] > 0:
            return reply({"ok": True, "status": "processing"})
        del notes.waiting[request_id]
        await turns.accept(call.state, call.user.name, waiting["name"], waiting["turn"])
    if request_id in account.replies:
        return reply({**account.replies[request_id], "status": "done"})
    return reply({"ok": True, "status": "unknown_request"})


ROUTES = {"voice": (False, {"POST": voice}), "voice/status": (False, {"GET": status})}


def handle_control(method: str, action: str, body: dict, state) -> web.Response | None:
    """POST voice/transcript {user, text}; POST voice/processing {user, asks};
    POST voice/received {user} gives the fields of every note received."""
    if method != "POST" or action not in ("voice/transcript", "voice/processing",
                                          "voice/received"):
        return None
    take = lambda key, kinds: checks.take(body, key, kinds, None, True, "bad_control")  # noqa
    notes = _notes(state.account(take("user", str)))
    if action == "voice/received":
        return reply({"received": notes.received})
    if action == "voice/transcript":
        notes.heard = take("text", str)
    else:
        notes.slow_asks = take("asks", int)
    return reply({"ok": True})
