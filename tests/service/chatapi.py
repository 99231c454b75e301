"""The chat endpoints under /webapi/: the message feed, sending, runs, tasks, votes, uploads."""

import hashlib
import re

from aiohttp import web

import chat
import checks
import formdata
import turns
from wire import Reject, json_body, media_type, reply

_COUNT = re.compile(r"[0-9]{1,18}")


def _count(query, key: str) -> int:
    values = query.getall(key, [])
    if not values:
        return 0
    if len(values) > 1 or not _COUNT.fullmatch(values[0]):
        raise Reject(400, "bad_request", f"{key} must be one whole number.")
    return int(values[0])


def _task_numbers(query) -> list[int]:
    text = ",".join(query.getall("tasks", []))
    items = [item for item in text.split(",") if item] if text else []
    if not all(_COUNT.fullmatch(item) for item in items):
        raise Reject(400, "bad_request", "tasks must be task numbers separated by commas.")
    return [int(item) for item in items]


def _body_conversation(call, body: dict) -> str:
    """The conversation that the query and the body both name."""
    return chat.agree([chat.from_query(call.request.query),
                       chat.named(body.get("conversation_id"), body.get("project_id"), True)])


async def messages(call) -> web.Response:
    query = call.request.query
    name = chat.agree([chat.from_query(query)])
    since, activity_since = _count(query, "since"), _count(query, "activity_since")
    asked = _task_numbers(query)
    account = call.state.account(call.user.name)
    conversation = account.conversation(name)
    feed = call.state.feed
    found, cursor, more = chat.page(conversation.messages, since, feed.page_size)
    if found and feed.duplicate:
        feed.duplicate = False
        found = found + [found[-1]]
    activity, activity_cursor, activity_more = chat.page(conversation.activity, activity_since,
                                                         feed.page_size)
    # Tasks under way, and every task asked about ("unknown" when this conversation has none).
    states = {str(task.number): task.state for task in account.tasks.values()
              if task.conversation == name and task.state == "running"}
    for number in asked:
        task = account.tasks.get(number)
        mine = task is not None and task.conversation == name
        states[str(number)] = task.state if mine else "unknown"
    body = {"ok": True, "conversation_id": name, "messages": found, "cursor": cursor,
            "has_more": more, "activity": activity, "activity_cursor": activity_cursor,
            "activity_has_more": activity_more, "task_states": states}
    project = chat.project_of(name)
    if project is not None:
        body["project_id"] = project
    return reply(body)


async def send(call) -> web.Response:
    body = await json_body(call.request)
    name = _body_conversation(call, body)
    turn = turns.parse(body)
    return reply(await turns.accept(call.state, call.user.name, name, turn))


async def run(call) -> web.Response:
    found = call.state.account(call.user.name).runs.get(call.match.group(1))
    if found is None:
        raise Reject(404, "run_not_found")
    return reply(found.record())


async def stop_task(call) -> web.Response:
    await json_body(call.request, optional=True)
    await turns.stop_task(call.state, call.user.name, int(call.match.group(1)))
    return reply({"ok": True})


async def feedback(call) -> web.Response:
    body = await json_body(call.request)
    name = _body_conversation(call, body)
    vote = checks.take(body, "vote", str, required=True)
    if not vote.strip():
        raise Reject(400, "bad_request", "vote must not be empty.")
    given = {key: checks.take(body, key, str, "") for key in ("want", "level", "note")}
    seq = checks.take(body, "seq", int, required=True)
    account = call.state.account(call.user.name)
    target = account.conversation(name).message(seq)
    if target is None:
        raise Reject(404, "message_not_found", f"There is no message {seq} in {name}.")
    target["route_vote"] = vote
    account.feedback.append({"conversation_id": name, "seq": seq, "vote": vote, **given})
    return reply({"ok": True})


async def upload(call) -> web.Response:
    kind, params = media_type(call.request)
    if kind != "multipart/form-data":
        raise Reject(415, "unsupported_media_type")
    data = await call.request.read()
    try:
        part, fields = formdata.upload(formdata.parse(data, params.get("boundary")))
    except formdata.Malformed as error:
        raise Reject(400, "bad_multipart", str(error)) from None
    conversation = chat.agree([
        chat.from_query(call.request.query),
        chat.named(fields.get("conversation_id"), fields.get("project_id"), False)])
    account = call.state.account(call.user.name)
    request_id = fields.get("client_request_id") or None
    if request_id in account.upload_requests:
        return reply(account.upload_requests[request_id].reply)
    body = {
        "ok": True, "file_id": chat.new_id("file_"), "name": part.filename, "part": part.name,
        "filename": part.filename, "mime": part.content_type, "size": len(part.data),
        "sha256": hashlib.sha256(part.data).hexdigest(), "fields": fields,
    }
    stored = chat.Upload(body["file_id"], part.filename, part.content_type, len(part.data),
                         conversation, body)
    account.uploads.append(stored)
    if request_id:
        account.upload_requests[request_id] = stored
    return reply(body)
