"""Control actions for the chat: speak for a user, insert and read messages, steer the agent,
the sockets and the message feed."""

import time
from dataclasses import asdict, replace

from aiohttp import web

import agent
import chat
import checks
import turns
from hub import Rule
from wire import Reject, reply

# Keys a test may give an inserted message beside role and text, all text on the wire.
_MESSAGE_TEXTS = ("kind", "source", "run_id", "client_request_id", "reply_to_id",
                  "reply_to_role", "reply_to_text", "reply_ref", "route_vote", "voice_file")
_MESSAGE_NUMBERS = ("tg_message_id", "task_no")  # text on the wire; a test may give numbers


def _take(body: dict, key: str, kinds, default=None, required=False):
    return checks.take(body, key, kinds, default, required, "bad_control")


def _bad(detail: str) -> Reject:
    return Reject(400, "bad_control", detail)


def _user(state, body: dict) -> str:
    name = _take(body, "user", str, required=True)
    if name not in state.users:
        raise Reject(404, "no_such_user", f"There is no user {name}.")
    return name


def _conversation(body: dict, typed: bool = True) -> str:
    return chat.agree([chat.named(body.get("conversation_id"), body.get("project_id"), typed)])


async def _chat(state, body: dict) -> web.Response:
    user, name = _user(state, body), _conversation(body)
    return reply(await turns.accept(state, user, name, turns.parse(body)))


def _message_from(body: dict) -> dict:
    role = _take(body, "role", str, required=True)
    if role not in ("user", "assistant"):
        raise _bad('role must be "user" or "assistant".')
    message = {"role": role, "kind": "text", "text": _take(body, "text", str, required=True),
               "created_at": float(_take(body, "created_at", (int, float), time.time()))}
    for key in _MESSAGE_TEXTS:
        message[key] = _take(body, key, str, message.get(key))
    for key in _MESSAGE_NUMBERS:
        value = _take(body, key, (str, int))
        message[key] = None if value is None else str(value)
    attachments = _take(body, "attachments", list)
    if attachments is not None:
        if not all(isinstance(item, dict) and isinstance(item.get("file_id"), str)
                   for item in attachments):
            raise _bad("attachments must be objects with a file_id.")
        message["attachments"] = attachments
    return {key: value for key, value in message.items() if value is not None}


async def _message(state, body: dict) -> web.Response:
    user, name = _user(state, body), _conversation(body)
    message = state.account(user).conversation(name).add(_message_from(body))
    if _take(body, "notify", bool, True):
        await state.hub.send(user, {"type": "tg_message", "conversation_id": name})
    return reply({"ok": True, "seq": message["seq"], "message": message})


def _messages(state, query) -> web.Response:
    given = {key: query[key] for key in ("user", "conversation_id", "project_id") if key in query}
    user, name = _user(state, given), _conversation(given, typed=False)
    account = state.account(user)
    conversation = account.conversation(name)
    return reply({
        "conversation_id": name, "messages": conversation.messages,
        "activity": conversation.activity,
        "tasks": {str(task.number): task.state for task in account.tasks.values()
                  if task.conversation == name},
        "runs": {run.id: run.record() for run in account.runs.values()
                 if run.conversation == name},
    })


def _agent(state, body: dict) -> web.Response:
    # All or nothing: one bad value leaves every setting as it was.
    settings = replace(state.agent)
    if "mode" in body:
        settings.mode = _take(body, "mode", str, required=True)
        if settings.mode not in chat.AGENT_MODES:
            raise _bad("mode must be one of " + ", ".join(chat.AGENT_MODES) + ".")
    if "step_delay" in body:
        settings.step_delay = float(_take(body, "step_delay", (int, float), required=True))
        if not 0 <= settings.step_delay <= 60:
            raise _bad("step_delay must be from 0 to 60 seconds.")
    if "tools" in body:
        settings.tools = _take(body, "tools", int, required=True)
        if not 0 <= settings.tools <= 10:
            raise _bad("tools must be from 0 to 10.")
    for key in ("reply", "error"):
        if key in body:
            setattr(settings, key, _take(body, key, str))  # null: back to the scripted text
    state.agent = settings
    return reply({"ok": True, **asdict(settings)})


def _finish(state, body: dict) -> web.Response:
    user, run_id = _user(state, body), _take(body, "run_id", str)
    finished = agent.finish(state.account(user), run_id)
    if run_id is not None and not finished:
        raise Reject(404, "no_such_run", f"{run_id} is not a silent run under way.")
    return reply({"ok": True, "finished": finished})


def _frame_types(body: dict, key: str) -> set[str] | None:
    types = _take(body, key, list)
    if types is not None and (not types or not all(isinstance(t, str) for t in types)):
        raise _bad(f"{key} must be a list of frame types.")
    return None if types is None else set(types)


def _socket(state, body: dict) -> web.Response:
    action = _take(body, "action", str)
    if action is not None:
        if action != "drop":
            raise _bad('action can only be "drop".')
        return reply({"ok": True, "closed": state.hub.drop(_user(state, body))})
    if _take(body, "clear", bool, False):
        state.hub.rules.clear()
        return reply({"ok": True})
    times = _take(body, "times", int, 1)
    if times == 0 or times < -1:
        raise _bad("times must be positive, or -1 for ever.")
    user = _user(state, body) if body.get("user") is not None else None
    rules = [Rule(types, copies, times, user) for types, copies in (
        (_frame_types(body, "drop_frames"), 0), (_frame_types(body, "duplicate_frames"), 2))
        if types is not None]
    if not rules:
        raise _bad("Give action, drop_frames, duplicate_frames or clear.")
    state.hub.rules.extend(rules)
    return reply({"ok": True, "rules": len(state.hub.rules)})


def _feed(state, body: dict) -> web.Response:
    page_size = _take(body, "page_size", int, state.feed.page_size)
    duplicate = _take(body, "duplicate", bool, state.feed.duplicate)
    if page_size < 1:
        raise _bad("page_size must be at least 1.")
    state.feed.page_size, state.feed.duplicate = page_size, duplicate
    return reply({"ok": True, **asdict(state.feed)})


def _feedback(state, query) -> web.Response:
    user = _user(state, {key: query[key] for key in ("user",) if key in query})
    return reply({"feedback": state.account(user).feedback})


async def handle(method: str, action: str, body: dict, query, state) -> web.Response | None:
    """The reply to a chat control action, None when the action is not one of these."""
    if (method, action) == ("POST", "chat"):
        return await _chat(state, body)
    if (method, action) == ("POST", "message"):
        return await _message(state, body)
    if (method, action) == ("GET", "messages"):
        return _messages(state, query)
    if (method, action) == ("POST", "agent"):
        return _agent(state, body)
    if (method, action) == ("POST", "agent/finish"):
        return _finish(state, body)
    if (method, action) == ("POST", "socket"):
        return _socket(state, body)
    if (method, action) == ("POST", "feed"):
        return _feed(state, body)
    if (method, action) == ("GET", "feedback"):
        return _feedback(state, query)
    return None
