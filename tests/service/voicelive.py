"""Live voice calls: webapi/voice-live/status, journal, preferences, memory, and the call socket
webapi/voice-live/ws with a scripted agent that listens to the energy of the audio it receives
and answers each utterance with real speech (espeak-ng, 24 kHz mono 16-bit).

Every frame the client sends is recorded, and every frame the service sends is noted, per
socket, for GET /_control/voice-live/frames. The socket is strict: a frame the hosted service
would refuse ends the call with a fatal "error" frame naming the fault."""

import asyncio
import base64
import binascii
import io
import json
import math
import shutil
import struct
import subprocess
import wave
from array import array
from dataclasses import dataclass, field

from aiohttp import WSMsgType, web

import chat
import checks
from wire import Reject, dumps, json_body, reply

RATE = 24000
VOICES = ["Orus", "Kore", "Puck", "Charon", "Aoede"]
LANGUAGES = ["auto", "English", "Hebrew", "Russian"]
PROVIDERS = ["openai", "gemini"]
ROUTES_ = ("speaker", "receiver", "bluetooth")
HEAR_DB = -45.0  # what counts as someone speaking
START_SECONDS = 0.12  # of speech before the agent reports input activity
END_SECONDS = 0.6  # of quiet that ends an utterance
MAX_CHUNK = 96000  # bytes of audio in one frame (two seconds)


@dataclass
class Script:
    """What the agent says and does; POST /_control/voice-live/agent changes it."""
    heard: str = "What is the weather in Lisbon tomorrow?"
    reply: str = "Tomorrow in Lisbon is clear and mild. I asked an agent to book you a taxi."
    tools: bool = True
    fast: bool = True
    rotate_after: int = 0  # after that many turns the session rotates (0: never)
    refuse: int = 0  # socket opens still to refuse with 503
    chunk_ms: int = 100  # reply audio per frame
    pace: float = 2.0  # reply audio sent this many times faster than real time


@dataclass
class Account:
    voice: str = "Orus"
    language: str = "auto"
    provider: str = "openai"
    messages: list = field(default_factory=list)
    short_term: int = 0
    long_term: int = 0
    job: asyncio.Task | None = None
    handles: set = field(default_factory=set)
    serial: int = 0

    def memory(self) -> dict:
        running = self.job is not None and not self.job.done()
        if running:
            message = "Folding the call into long-term memory"
        elif self.long_term:
            message = "Memory is up to date"
        else:
            message = "Nothing remembered yet"
        return {"short_term": self.short_term, "long_term": self.long_term,
                "status": "running" if running else "idle", "message": message}

    def preferences(self) -> dict:
        return {"voice": self.voice, "language": self.language, "selected_provider": self.provider}


@dataclass
class Call:
    user: str
    query: dict
    ws: web.WebSocketResponse
    request: web.Request
    log: list = field(default_factory=list)  # {"dir": "in"|"out", "type", ...}
    ready: bool = False
    speaking: bool = False
    voiced: float = 0.0
    quiet: float = 0.0
    turns: int = 0
    replying: asyncio.Task | None = None
    interrupted: bool = False
    stats_seen: asyncio.Event = field(default_factory=asyncio.Event)

    def record(self) -> dict:
        return {"user": self.user, "query": self.query, "log": self.log}


class Voice:
    """Everything of this module kept in the service's state (rebuilt on reset)."""

    def __init__(self):
        self.script = Script()
        self.accounts: dict[str, Account] = {}
        self.calls: list[Call] = []

    def account(self, user: str) -> Account:
        return self.accounts.setdefault(user, Account())


def _voice(state) -> Voice:
    if not isinstance(getattr(state, "voicelive", None), Voice):
        state.voicelive = Voice()
    return state.voicelive


# Speech

_speech_cache: dict[tuple, bytes] = {}


def _wav(samples: bytes, rate: int, channels: int) -> bytes:
    out = io.BytesIO()
    with wave.open(out, "wb") as w:
        w.setnchannels(channels)
        w.setsampwidth(2)
        w.setframerate(rate)
        w.writeframes(samples)
    return out.getvalue()


def speech(text: str, rate: int = RATE, channels: int = 1, female: bool = False) -> bytes:
    """Spoken text as 16-bit PCM samples (espeak-ng, converted by sox); a warbling tone as
    long as the words when either is missing."""
    key = (text, rate, channels, female)
    if key in _speech_cache:
        return _speech_cache[key]
    espeak, sox = shutil.which("espeak-ng"), shutil.which("sox")
    if espeak and sox:
        voice = ["-v", "en-us+f3", "-s", "170"] if female else ["-v", "en-us", "-s", "165"]
        spoken = subprocess.run([espeak, *voice, "--stdout", text], capture_output=True,
                                check=True).stdout
        converted = subprocess.run(
            [sox, "-t", "wav", "-", "-r", str(rate), "-c", str(channels), "-b", "16",
             "-e", "signed-integer", "-t", "raw", "-"],
            input=spoken, capture_output=True, check=True).stdout
    else:
        frames = int(rate * 0.3 * max(1, len(text.split())))
        tone = (int(6000 * math.sin(2 * math.pi * (180 + 40 * math.sin(i / rate * 7)) * i / rate))
                for i in range(frames))
        converted = b"".join(struct.pack("<h", s) * channels for s in tone)
    _speech_cache[key] = converted
    return converted


def level_db(pcm: bytes) -> float:
    samples = array("h")
    samples.frombytes(pcm)
    if not samples:
        return -80.0
    rms = math.sqrt(sum(s * s for s in samples) / len(samples)) / 32768
    return max(-80.0, 20 * math.log10(max(rms, 0.0001)))


# HTTP endpoints

def _scope(call) -> str:
    return chat.agree([chat.from_query(call.request.query)])


async def status(call) -> web.Response:
    _scope(call)
    user = call.user
    account = _voice(call.state).account(user.name)
    return reply({"available": user.voice_live, "enabled": user.voice_live,
                  "provider": account.provider,
                  "reason": "" if user.voice_live else "Voice calls are not enabled for this account."})


async def journal(call) -> web.Response:
    _scope(call)
    account = _voice(call.state).account(call.user.name)
    running = account.job is not None and not account.job.done()
    return reply({"messages": account.messages, "memory": account.memory(),
                  "preferences": account.preferences(), "voices": VOICES, "running": running,
                  "memory_action": "consolidate"})


async def preferences(call) -> web.Response:
    _scope(call)
    body = await json_body(call.request)
    unknown = set(body) - {"voice", "language", "provider"}
    if unknown:
        raise Reject(400, "bad_request", "Unknown keys: " + ", ".join(sorted(unknown)))
    account = _voice(call.state).account(call.user.name)
    take = lambda key: checks.take(body, key, str)  # noqa: E731
    for key, allowed in (("voice", VOICES), ("language", LANGUAGES), ("provider", PROVIDERS)):
        value = take(key)
        if value is not None and value not in allowed:
            raise Reject(400, "bad_preference", f"{key} must be one of {', '.join(allowed)}.")
    account.voice = take("voice") or account.voice
    account.language = take("language") or account.language
    account.provider = take("provider") or account.provider
    return reply({"ok": True, "preferences": account.preferences()})


async def _fold(account: Account) -> None:
    await asyncio.sleep(0.4)
    account.long_term += account.short_term
    account.short_term = 0


async def memory(call) -> web.Response:
    body = await json_body(call.request, optional=True)
    unknown = set(body) - {"conversation_id", "project_id"}
    if unknown:
        raise Reject(400, "bad_request", "Unknown keys: " + ", ".join(sorted(unknown)))
    chat.agree([chat.from_query(call.request.query),
                chat.named(body.get("conversation_id"), body.get("project_id"), True)])
    account = _voice(call.state).account(call.user.name)
    if account.job is None or account.job.done():
        if not account.short_term:
            return reply({"status": "idle", "message": "Nothing new to remember"})
        account.job = asyncio.create_task(_fold(account))
    return reply({"status": "running", "message": "Folding the call into long-term memory"})


# The call socket

class Fault(Exception):
    def __init__(self, code: str, detail: str):
        super().__init__(detail)
        self.code, self.detail = code, detail


async def _send(call: Call, frame: dict) -> None:
    noted = {k: v for k, v in frame.items() if k != "data"}
    call.log.append({"dir": "out", **noted})
    try:
        await call.ws.send_str(dumps(frame).decode())
    except (ConnectionError, RuntimeError):
        pass  # gone meanwhile; the read loop ends on its own


def _exact(frame: dict, required: dict, optional: dict | None = None) -> None:
    optional = optional or {}
    unknown = set(frame) - {"type"} - set(required) - set(optional)
    if unknown:
        raise Fault("bad_frame", f"{frame['type']}: unknown keys {', '.join(sorted(unknown))}")
    for key, kinds in {**required, **optional}.items():
        if key not in frame:
            if key in required:
                raise Fault("bad_frame", f"{frame['type']}: {key} is missing")
            continue
        value = frame[key]
        if isinstance(value, bool) or not isinstance(value, kinds):
            raise Fault("bad_frame", f"{frame['type']}: {key} has the wrong type")


NUMBER = (int, float)


async def _hello(call: Call, frame: dict, voice: Voice, scope: str) -> None:
    _exact(frame, {"resume": str}, {"conversation_id": str, "project_id": int})
    try:
        named = chat.named(frame.get("conversation_id"), frame.get("project_id"), True)
        chat.agree([scope, named or chat.MAIN])
    except Reject as error:
        raise Fault("bad_conversation", str(error)) from None
    account = voice.account(call.user)
    resume = frame["resume"]
    if resume and resume not in account.handles:
        raise Fault("bad_resume", "This call cannot be resumed; start a new call.")
    call.log[-1]["resume"] = resume
    call.ready = True
    await _send(call, {"type": "ready", "voice": account.voice,
                       "provider": call.query.get("provider", "openai")})
    await _handle(call, account)


async def _handle(call: Call, account: Account) -> None:
    account.serial += 1
    handle = f"rh-{call.user}-{account.serial}"
    account.handles.add(handle)
    await _send(call, {"type": "resume_handle", "handle": handle})


def _audio(call: Call, frame: dict, voice: Voice) -> None:
    _exact(frame, {"data": str})
    try:
        pcm = base64.b64decode(frame["data"], validate=True)
    except binascii.Error:
        raise Fault("bad_audio", "audio: data is not base64") from None
    if not pcm or len(pcm) % 2 or len(pcm) > MAX_CHUNK:
        raise Fault("bad_audio", f"audio: {len(pcm)} bytes is not a chunk of 16-bit samples")
    level = level_db(pcm)
    call.log[-1].update({"bytes": len(pcm), "level_db": round(level, 1)})
    seconds = len(pcm) / (2 * RATE)
    if level >= HEAR_DB:
        call.voiced += seconds
        call.quiet = 0.0
        if not call.speaking and call.voiced >= START_SECONDS:
            call.speaking = True
            asyncio.create_task(_heard(call, voice))
    elif call.speaking:
        call.quiet += seconds
        if call.quiet >= END_SECONDS:
            call.speaking = False
            call.voiced = 0.0
            asyncio.create_task(_turn(call, voice))
    else:
        call.voiced = 0.0


async def _heard(call: Call, voice: Voice) -> None:
    if call.replying is not None and not call.replying.done():
        call.interrupted = True  # the user talks over the reply
        await _send(call, {"type": "interrupted"})
    await _send(call, {"type": "input_activity", "active": True})
    first = voice.script.heard.split(" ")[0]
    await _send(call, {"type": "user_text", "text": first, "replace": False})


async def _turn(call: Call, voice: Voice) -> None:
    script, account = voice.script, voice.account(call.user)
    await _send(call, {"type": "input_activity", "active": False})
    await _send(call, {"type": "user_text", "text": script.heard, "replace": True})
    if call.replying is not None and not call.replying.done():
        await call.replying
    call.interrupted = False
    call.replying = asyncio.current_task()
    await _send(call, {"type": "turn_started"})
    words = script.reply.split(" ")
    third = max(1, len(words) // 3)
    for at in range(0, len(words), third):
        await _send(call, {"type": "bot_text", "text": " ".join(words[at:at + third]) +
                           (" " if at + third < len(words) else "")})
    n = call.turns + 1
    if script.fast:
        await _send(call, {"type": "web_search_started", "call_id": f"ws-{n}"})
        await _send(call, {"type": "fast_response_started", "call_id": f"fast-{n}",
                           "query": "weather Lisbon tomorrow", "model": "gpt-6-luna",
                           "effort": "low", "latency_ms": 420})
        await _send(call, {"type": "fast_response_finished", "call_id": f"fast-{n}",
                           "answer": "Clear, 19 °C, light north wind.",
                           "sources": [{"title": "Lisbon forecast",
                                        "url": "https://weather.example/lisbon"}]})
        await _send(call, {"type": "web_search_finished", "call_id": f"ws-{n}"})
    if script.tools:
        await _send(call, {"type": "agent_call", "call_id": f"call-{n}", "title": "Book a taxi"})
        await _send(call, {"type": "agent_queued", "call_id": f"call-{n}", "job_id": f"job-{n}"})
    pcm = speech(script.reply)
    step = RATE * 2 * script.chunk_ms // 1000
    for at in range(0, len(pcm), step):
        if call.interrupted or call.ws.closed:
            break
        await _send(call, {"type": "audio",
                           "data": base64.b64encode(pcm[at:at + step]).decode("ascii")})
        await asyncio.sleep(script.chunk_ms / 1000 / script.pace)
    if script.tools:
        await _send(call, {"type": "agent_result", "call_id": f"call-{n}", "state": "done",
                           "text": "Taxi booked for 08:10"})
    account.messages += [{"role": "user", "text": script.heard},
                         {"role": "assistant", "text": script.reply}]
    account.short_term += 1
    await _handle(call, account)
    call.turns += 1
    call.stats_seen.clear()
    await _send(call, {"type": "turn_complete"})
    if script.rotate_after and call.turns == script.rotate_after:
        try:
            await asyncio.wait_for(call.stats_seen.wait(), 3)
        except asyncio.TimeoutError:
            pass
        await _close(call, "session_rotate")


async def _close(call: Call, reason: str) -> None:
    await _send(call, {"type": "closed", "reason": reason})
    await call.ws.close()


def _stats(call: Call, frame: dict) -> None:
    if frame["type"] == "playback_stats":
        _exact(frame, {"underruns": int, "cushion_ms": int})
        if frame["underruns"] < 0 or frame["cushion_ms"] < 0:
            raise Fault("bad_frame", "playback_stats: negative figures")
    else:
        _exact(frame, {"opened": int, "opened_while_playing": int, "suppressed_frames": int,
                       "threshold_db": NUMBER, "effective_db": NUMBER, "route": str,
                       "speaker_percent": int}, {"echo_floor_db": NUMBER})
        if frame["route"] not in ROUTES_:
            raise Fault("bad_frame", f"gate_stats: route {frame['route']!r}")
        call.stats_seen.set()
    call.log[-1]["frame"] = frame


async def _receive(call: Call, text: str, voice: Voice, scope: str) -> None:
    try:
        frame = json.loads(text)
    except ValueError:
        raise Fault("bad_frame", "not JSON") from None
    if not isinstance(frame, dict) or not isinstance(frame.get("type"), str):
        raise Fault("bad_frame", "a frame is a JSON object with a string type")
    kind = frame["type"]
    call.log.append({"dir": "in", "type": kind})
    if kind == "hello":
        if call.ready:
            raise Fault("bad_frame", "hello twice")
        await _hello(call, frame, voice, scope)
    elif not call.ready:
        raise Fault("not_ready", f"{kind} before hello")
    elif kind == "audio":
        _audio(call, frame, voice)
    elif kind in ("playback_stats", "gate_stats"):
        _stats(call, frame)
    else:
        raise Fault("bad_frame", f"unknown frame type {kind!r}")


async def socket(call) -> web.StreamResponse:
    request, state = call.request, call.state
    voice = _voice(state)
    query = dict(request.query)
    scope = chat.agree([chat.from_query(request.query)])
    unknown = set(query) - {"provider", "app_language", "conversation_id", "project_id"}
    if unknown:
        raise Reject(400, "bad_request", "Unknown query keys: " + ", ".join(sorted(unknown)))
    if query.get("provider") not in PROVIDERS:
        raise Reject(400, "bad_provider", "provider must be openai or gemini.")
    if query.get("app_language") not in ("he", "en", "ru"):
        raise Reject(400, "bad_language", "app_language must be he, en or ru.")
    if not call.user.voice_live:
        raise Reject(403, "voice_not_enabled", "Voice calls are not enabled for this account.")
    if voice.script.refuse > 0:
        voice.script.refuse -= 1
        raise Reject(503, "voice_unavailable", "Voice is busy; try again.")
    ws = web.WebSocketResponse(max_msg_size=4 * MAX_CHUNK, autoping=True)
    if not ws.can_prepare(request).ok:
        raise Reject(400, "not_websocket", "This address only speaks WebSocket.")
    await ws.prepare(request)
    if "log_entry" in request:
        request["log_entry"]["status"] = 101
    live = Call(call.user.name, query, ws, request)
    voice.calls.append(live)
    try:
        async for message in ws:
            if message.type != WSMsgType.TEXT:
                raise Fault("bad_frame", "only text frames")
            await _receive(live, message.data, voice, scope)
    except Fault as fault:
        live.log.append({"dir": "fault", "type": fault.code, "detail": fault.detail})
        await _send(live, {"type": "error", "error": fault.code, "detail": fault.detail,
                           "fatal": True})
        await ws.close()
    finally:
        if live.replying is not None:
            live.replying.cancel()
    return ws


ROUTES = {
    "voice-live/status": (False, {"GET": status}),
    "voice-live/journal": (False, {"GET": journal}),
    "voice-live/preferences": (False, {"POST": preferences}),
    "voice-live/memory": (False, {"POST": memory}),
    "voice-live/ws": (False, {"GET": socket}),
}


# Control

def _open_calls(voice: Voice, user: str | None) -> list[Call]:
    return [c for c in voice.calls if not c.ws.closed and user in (None, c.user)]


async def handle_control(method: str, action: str, body: dict, query, state):
    """POST voice-live/agent {heard, reply, tools, fast, rotate_after, refuse, chunk_ms, pace};
    POST voice-live/send {user?, frame} (a "closed" frame also closes the socket);
    POST voice-live/drop {user?} cuts the sockets; GET voice-live/frames?user=;
    GET voice-live/speech?text=&rate=&channels= (WAV)."""
    if not action.startswith("voice-live/"):
        return None
    voice = _voice(state)
    take = lambda key, kinds, default=None, required=False: checks.take(  # noqa: E731
        body, key, kinds, default, required, "bad_control")
    what = (method, action[len("voice-live/"):])
    if what == ("POST", "agent"):
        script = voice.script
        for key, kinds in (("heard", str), ("reply", str), ("tools", bool), ("fast", bool),
                           ("rotate_after", int), ("refuse", int), ("chunk_ms", int),
                           ("pace", NUMBER)):
            setattr(script, key, take(key, kinds, getattr(script, key)))
        return reply({"ok": True, **script.__dict__})
    if what == ("POST", "send"):
        frame = take("frame", dict, required=True)
        calls = _open_calls(voice, take("user", str))
        for live in calls:
            if frame.get("type") == "closed":
                await _close(live, str(frame.get("reason", "")))
            else:
                await _send(live, frame)
        return reply({"ok": True, "sent": len(calls)})
    if what == ("POST", "drop"):
        calls = _open_calls(voice, take("user", str))
        for live in calls:
            transport = live.request.transport
            if transport is not None:
                transport.close()
        return reply({"ok": True, "dropped": len(calls)})
    if what == ("GET", "frames"):
        user = query.get("user")
        return reply({"sessions": [c.record() for c in voice.calls if user in (None, c.user)]})
    if what == ("GET", "speech"):
        try:
            rate, channels = int(query.get("rate", RATE)), int(query.get("channels", 1))
        except ValueError:
            raise Reject(400, "bad_control", "rate and channels are numbers.") from None
        if not 8000 <= rate <= 96000 or not 1 <= channels <= 8:
            raise Reject(400, "bad_control", "rate 8000..96000, channels 1..8.")
        text = query.get("text") or voice.script.heard
        return web.Response(body=_wav(speech(text, rate, channels, female=True), rate, channels),
                            content_type="audio/wav")
    raise Reject(404, "not_found", f"No control action {method} {action}.")
