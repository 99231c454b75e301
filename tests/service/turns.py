"""The user's turns: taking one in (webapi/chat and /_control/chat) and stopping tasks."""

import re
import time
from dataclasses import dataclass

import agent
import checks
from chat import Account, Conversation, Run, Task, new_id
from wire import Reject

_ATTACHMENT = re.compile(r"^\[attachment: (.+)\][ \t\r]*$", re.MULTILINE)
_SEQ = re.compile(r"[1-9][0-9]{0,17}")
_TASK = re.compile(r"task:([1-9][0-9]{0,17})")
_QUOTE = 200  # characters of the answered message kept in reply_to_text


@dataclass
class Turn:
    text: str
    client_request_id: str | None
    reply_to_id: str | None
    voice_reply: bool


def parse(body: dict) -> Turn:
    """A chat body held to its types; unknown keys (a location, say) are left alone."""
    text = checks.take(body, "text", str, required=True)
    if not text.strip():
        raise Reject(400, "empty_text", "The message has no text.")
    checks.take(body, "from_voice", bool)
    return Turn(text, checks.take(body, "client_request_id", str) or None,
                checks.take(body, "reply_to_id", str) or None,
                checks.take(body, "voice_reply", bool, False))


def _gone(what: str) -> Reject:
    return Reject(409, "reply_target_not_found",
                  f"The {what} you replied to is no longer available")


def _reply_target(account: Account, conversation: Conversation,
                  reply_to_id: str | None) -> tuple[dict, Task | None]:
    """The message keys that quote the target, and the task the turn continues."""
    if reply_to_id is None:
        return {}, None
    found = _TASK.fullmatch(reply_to_id)
    if found:
        task = account.tasks.get(int(found.group(1)))
        if task is None or task.state == "stopped" or task.conversation != conversation.name:
            raise _gone("task")
        return {"reply_to_id": reply_to_id, "reply_ref": reply_to_id}, task
    if not _SEQ.fullmatch(reply_to_id):
        raise Reject(400, "bad_request", "reply_to_id must be a message seq or task:N.")
    target = conversation.message(int(reply_to_id))
    if target is None:
        raise _gone("message")
    return {"reply_to_id": reply_to_id, "reply_to_role": target["role"],
            "reply_to_text": target["text"][:_QUOTE], "reply_ref": "seq:" + reply_to_id}, None


def _attachments(account: Account, conversation: str, text: str) -> list[dict]:
    found = []
    for name in _ATTACHMENT.findall(text):
        upload = account.upload_named(name, conversation)
        if upload is not None:
            upload.attached = True
            found.append(upload.attachment())
    return found


async def accept(state, user: str, conversation_id: str, turn: Turn) -> dict:
    """Stores the user's message and starts the run that answers it; the chat reply."""
    account = state.account(user)
    if turn.client_request_id in account.replies:
        return account.replies[turn.client_request_id]  # the same turn delivered again
    conversation = account.conversation(conversation_id)
    quoted, task = _reply_target(account, conversation, turn.reply_to_id)
    run_id = new_id("run_")
    earlier = None
    if task is None:
        task = account.new_task(conversation_id, run_id)
    else:
        earlier = account.runs.get(task.run_id)
        task.run_id, task.state = run_id, "running"
    message = {"role": "user", "kind": "text", "text": turn.text, "created_at": time.time(),
               "run_id": run_id, "task_no": str(task.number), **quoted}
    if turn.client_request_id:
        message["client_request_id"] = turn.client_request_id
    attachments = _attachments(account, conversation_id, turn.text)
    if attachments:
        message["attachments"] = attachments
    conversation.add(message)
    answer = {"ok": True, "user_seq": message["seq"], "run_id": run_id,
              "conversation_id": conversation_id}
    if turn.client_request_id:
        account.replies[turn.client_request_id] = answer
    agent.launch(state, account, conversation,
                 Run(run_id, user, conversation_id, task.number, message["seq"],
                     turn.client_request_id, turn.voice_reply))
    if earlier is not None:
        # The task's new turn replaces a run still working on it.
        await agent.end(state.hub, conversation, earlier, "superseded")
    return answer


async def stop_task(state, user: str, number: int) -> None:
    account = state.account(user)
    task = account.tasks.get(number)
    if task is None:
        raise Reject(404, "task_not_found", f"There is no task {number}.")
    task.state = "stopped"
    run = account.runs.get(task.run_id)
    if run is not None:
        await agent.end(state.hub, account.conversation(run.conversation), run, "stopped")
