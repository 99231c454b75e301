"""The scripted agent: every run streams the same steps at a set pace, then replies.

Each step goes out as a socket frame and is also stored as a lane event, so a client that
missed the frames can rebuild the lane from webapi/messages.
"""

import asyncio
import time
from dataclasses import replace

from chat import Account, AgentSettings, Conversation, Run
from hub import Hub
from state import Page

LABEL = "Researcher"
# Each delta carries the whole text so far.
DELTAS = ("Reading your message.", " Looking up the timetable.", " Writing the answer.")
TOOLS = (("search", "Looking up bus times"), ("read_file", "Reading the saved timetable"),
         ("calendar", "Checking your calendar"))
# Mixed directions, a table, a path inside a right-to-left sentence, a link and bold text:
# what the client's renderer has to get right.
REPLY = "\n".join([
    "שלום! מצאתי את זמני האוטובוס.",
    "Hello! I found the bus times.",
    "",
    "| a | b |",
    "|---|---|",
    "| 07:05 | קו 12 |",
    "| 07:35 | line 40 |",
    "",
    "הסקריפט נמצא בתיקייה /usr/local/bin ואפשר להריץ אותו משם.",
    "More in the [docs](https://example.com/docs). **Leave ten minutes early.**",
])
ERROR = "The agent could not finish this task."
# Enough of an MPEG-4 header for a player to recognise the type; the sound is not real.
VOICE = bytes.fromhex("0000001c667479704d344120000000004d34412069736f6d") + bytes(64)


def launch(state, account: Account, conversation: Conversation, run: Run) -> None:
    # A copy: changing the settings later leaves runs already under way alone.
    settings = replace(state.agent)
    run.silent = settings.mode == "silent"
    account.runs[run.id] = run
    run.agent = asyncio.create_task(_script(state, account, conversation, run, settings))


def _note(conversation: Conversation, run: Run, tool: dict | None = None,
          finished: bool = False) -> None:
    update = {"id": run.id, "label": run.label, "text": run.text, "after": run.user_seq,
              "attempt": run.attempt, "finished": finished}
    if finished:
        update["outcome"] = run.outcome
    if tool is not None:
        update["tool"] = tool
    conversation.note(update)


async def _emit(hub: Hub, run: Run, kind: str, **fields) -> None:
    await hub.send(run.user, {"type": kind, "conversation_id": run.conversation,
                              "run_id": run.id, **fields})


async def _script(state, account: Account, conversation: Conversation, run: Run,
                  settings: AgentSettings) -> None:
    hub = state.hub

    async def pause():
        await asyncio.sleep(settings.step_delay)

    await pause()
    _note(conversation, run)
    started = {"user_seq": run.user_seq}
    if run.client_request_id:
        started["client_request_id"] = run.client_request_id
    await _emit(hub, run, "run_started", **started)
    for count in range(1, len(DELTAS) + 1):
        await pause()
        run.label, run.text = LABEL, "".join(DELTAS[:count])
        _note(conversation, run)
        await _emit(hub, run, "delta", label=run.label, text=run.text, attempt=run.attempt)
    for index in range(settings.tools):
        name, summary = TOOLS[index % len(TOOLS)]
        for status in ("started", "completed"):
            await pause()
            tool = {"name": name, "summary": summary, "status": status}
            _note(conversation, run, tool=tool)
            await _emit(hub, run, "tool", **tool)
    if run.silent:
        await run.release.wait()
    await pause()
    if settings.mode == "error":
        await _fail(hub, account, conversation, run, settings.error or ERROR)
    else:
        await _complete(state, account, conversation, run,
                        REPLY if settings.reply is None else settings.reply)


def _settle_task(account: Account, run: Run, task_state: str) -> None:
    task = account.tasks.get(run.task_no)
    # A task answered again belongs to its newest run; a stopped one stays stopped.
    if task is not None and task.run_id == run.id and task.state == "running":
        task.state = task_state


def _assistant(run: Run, text: str) -> dict:
    return {"role": "assistant", "kind": "text", "text": text, "created_at": time.time(),
            "run_id": run.id, "task_no": str(run.task_no)}


async def _complete(state, account: Account, conversation: Conversation, run: Run,
                    text: str) -> None:
    message = _assistant(run, text)
    if run.voice_reply:
        name = f"reply-{run.id}.m4a"
        run.voice_url = "webapi/files/" + name
        message["voice_file"] = name
        state.pages[(run.voice_url, run.user)] = Page(VOICE, "audio/mp4")
    conversation.add(message)
    run.status, run.outcome, run.reply = "done", "completed", text
    run.created_at = message["created_at"]
    _settle_task(account, run, "done")
    _note(conversation, run, finished=True)
    final = {"outcome": "completed", "text": text, "created_at": run.created_at}
    if run.voice_url:
        final["voice_url"] = run.voice_url
    await _emit(state.hub, run, "final", **final)


async def _fail(hub: Hub, account: Account, conversation: Conversation, run: Run,
                error: str) -> None:
    message = conversation.add(_assistant(run, error))
    run.status, run.outcome, run.error, run.reply = "error", "error", error, ""
    run.created_at = message["created_at"]
    _settle_task(account, run, "error")
    _note(conversation, run, finished=True)
    await _emit(hub, run, "error", error=error)


async def end(hub: Hub, conversation: Conversation, run: Run, outcome: str) -> None:
    """Ends a run early ("stopped", "superseded"): no reply, a final frame with no text."""
    if run.status != "running":
        return
    if run.agent is not None:
        run.agent.cancel()
    run.status, run.outcome, run.reply = "done", outcome, ""
    run.created_at = time.time()
    _note(conversation, run, finished=True)
    await _emit(hub, run, "final", outcome=outcome, text="", created_at=run.created_at)


def finish(account: Account, run_id: str | None) -> int:
    """Lets silent runs give their reply; how many were waiting."""
    runs = [run for run in account.runs.values() if run.silent and run.status == "running"
            and run_id in (None, run.id)]
    for run in runs:
        run.release.set()
    return len(runs)
