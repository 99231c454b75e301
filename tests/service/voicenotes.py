"""The agent's spoken replies: webapi/messages/<seq>/voice, its parts and the whole file.

Speech is made over time: a message's voice is a list of parts, each released when a test
says so (POST /_control/voice/release); a message nobody scripted speaks at once, in three
one-second parts. Audio is 16 kHz mono 16-bit WAV: a tone per part, so parts differ."""

import io
import re
import math
import struct
import wave

from aiohttp import web

import chat
import checks
from wire import Reject, json_body, reply

RATE = 16000


class Speech:
    def __init__(self, seconds: list[float], released: int, done: bool):
        self.seconds = seconds
        self.released = released
        self.done = done


def _tone(seconds: float, pitch: float) -> bytes:
    frames = int(seconds * RATE)
    samples = (int(8000 * math.sin(2 * math.pi * pitch * i / RATE)) for i in range(frames))
    out = io.BytesIO()
    with wave.open(out, "wb") as w:
        w.setnchannels(1)
        w.setsampwidth(2)
        w.setframerate(RATE)
        w.writeframes(b"".join(struct.pack("<h", s) for s in samples))
    return out.getvalue()


def _speeches(state) -> dict:
    return state.speeches


def _speech(call, seq: int) -> tuple[str, Speech]:
    name = chat.agree([chat.from_query(call.request.query)])
    conversation = call.state.account(call.user.name).conversation(name)
    if not any(m["seq"] == seq for m in conversation.messages):
        raise Reject(404, "message_not_found", f"No message {seq} in {name}.")
    key = (call.user.name, name, seq)
    speeches = _speeches(call.state)
    if key not in speeches:
        speeches[key] = Speech([1.0, 1.0, 1.0], 3, True)
    return name, speeches[key]


def _voice_path(name: str, seq: int, rest: str) -> str:
    query = "" if name == chat.MAIN else f"?conversation_id={name}&project_id={chat.project_of(name)}"
    return f"/webapi/messages/{seq}/{rest}{query}"


async def prepare(call) -> web.Response:
    seq = int(call.match.group(1))
    body = await json_body(call.request, optional=True)
    name = chat.agree([chat.from_query(call.request.query),
                       chat.named(body.get("conversation_id"), body.get("project_id"), True)])
    wait = call.request.query.get("wait")
    if wait is not None and not re.fullmatch(r"[0-9]{1,3}", wait):
        raise Reject(400, "bad_request", "wait must be a whole number of seconds.")
    retry = call.request.query.get("retry")
    if retry not in (None, "1"):
        raise Reject(400, "bad_request", "retry must be 1 when given.")
    _, speech = _speech(call, seq)
    parts = [{"index": i, "seconds": s} for i, s in enumerate(speech.seconds[:speech.released])]
    answer = {"status": "done" if speech.done else "pending", "total": len(speech.seconds),
              "parts": parts}
    if speech.done:
        answer["voice_url"] = _voice_path(name, seq, "voice-file")
    return reply(answer)


async def part(call) -> web.Response:
    seq, index = int(call.match.group(1)), int(call.match.group(2))
    _, speech = _speech(call, seq)
    if index >= speech.released:
        raise Reject(404, "part_not_ready", f"Part {index} is not made yet.")
    return web.Response(body=_tone(speech.seconds[index], 300 + 100 * index),
                        content_type="audio/wav")


async def whole(call) -> web.Response:
    seq = int(call.match.group(1))
    _, speech = _speech(call, seq)
    if not speech.done:
        raise Reject(404, "voice_not_ready", "The voice is still being made.")
    return web.Response(body=_tone(sum(speech.seconds), 440), content_type="audio/wav")


PATTERNS = [
    (r"messages/([1-9][0-9]{0,17})/voice", {"POST": prepare}),
    (r"messages/([1-9][0-9]{0,17})/voice-part/([0-9]{1,4})", {"GET": part}),
    (r"messages/([1-9][0-9]{0,17})/voice-file", {"GET": whole}),
]


def handle_control(method: str, action: str, body: dict, state) -> web.Response | None:
    """POST voice {user, conversation_id?, seq, seconds: [...], released?, done?} scripts a
    message's speech; POST voice/release {user, conversation_id?, seq, released, done?}."""
    if method != "POST" or action not in ("voice", "voice/release"):
        return None
    take = lambda key, kinds, default=None, required=False: checks.take(  # noqa: E731
        body, key, kinds, default, required, "bad_control")
    user = take("user", str, required=True)
    name = take("conversation_id", str, chat.MAIN)
    seq = take("seq", int, required=True)
    key = (user, name, seq)
    speeches = _speeches(state)
    if action == "voice":
        seconds = take("seconds", list, required=True)
        if not seconds or not all(isinstance(s, (int, float)) and s > 0 for s in seconds):
            raise Reject(400, "bad_control", "seconds must be positive numbers.")
        speeches[key] = Speech([float(s) for s in seconds], take("released", int, 0),
                               take("done", bool, False))
    else:
        if key not in speeches:
            raise Reject(400, "bad_control", f"No speech scripted for {key}.")
        speech = speeches[key]
        speech.released = min(take("released", int, required=True), len(speech.seconds))
        speech.done = take("done", bool, speech.done)
    return reply({"ok": True})
