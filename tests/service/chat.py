"""Each user's conversations: messages, lane activity, tasks, agent runs and uploaded files."""

import asyncio
import re
import secrets
import time
from dataclasses import dataclass, field

from wire import Reject

MAIN = "main"
_PROJECT = re.compile(r"project:([1-9][0-9]{0,17})")
_NUMBER = re.compile(r"[1-9][0-9]{0,17}")


def _bad(detail: str) -> Reject:
    return Reject(400, "bad_conversation", detail)


def named(conversation_id, project_id, typed: bool) -> str | None:
    """The conversation one set of fields names ("main", "project:N"), None when none.
    `typed` fields come from JSON (project_id an integer), the others from a query or form."""
    if conversation_id is not None:
        if not isinstance(conversation_id, str):
            raise _bad("conversation_id must be text.")
        if conversation_id != MAIN and not _PROJECT.fullmatch(conversation_id):
            raise _bad(f"conversation_id {conversation_id!r} is neither main nor project:N.")
    if project_id is not None:
        if typed and type(project_id) is not int:
            raise _bad("project_id must be an integer.")
        if not typed and not _NUMBER.fullmatch(project_id):
            raise _bad(f"project_id {project_id!r} is not a project number.")
        if int(project_id) < 1:
            raise _bad("project_id must be positive.")
        by_project = f"project:{int(project_id)}"
        if conversation_id is not None and conversation_id != by_project:
            raise _bad(f"conversation_id {conversation_id} and project_id {project_id} differ.")
        return by_project
    return conversation_id


def agree(names) -> str:
    """The one conversation that every source names; "main" when none names one."""
    found = {name for name in names if name is not None}
    if len(found) > 1:
        raise _bad("The request names more than one conversation: " + ", ".join(sorted(found)))
    return found.pop() if found else MAIN


def from_query(query) -> str | None:
    """The conversation named by a request's query (a multidict: every repeat must agree)."""
    ids, projects = query.getall("conversation_id", []), query.getall("project_id", [])
    names = [named(value, None, False) for value in ids]
    names += [named(None, value, False) for value in projects]
    return agree(names) if names else None


def project_of(conversation: str) -> int | None:
    found = _PROJECT.fullmatch(conversation)
    return int(found.group(1)) if found else None


def new_id(prefix: str) -> str:
    return prefix + secrets.token_hex(8)


@dataclass
class Run:
    id: str
    user: str
    conversation: str
    task_no: int
    user_seq: int
    client_request_id: str | None
    voice_reply: bool
    silent: bool = False  # waits for /_control/agent/finish before it replies
    created_at: float = field(default_factory=time.time)
    status: str = "running"  # running, done, error
    label: str = "Working on it"
    text: str = ""  # the lane text streamed so far
    reply: str = ""  # the answer, once done
    attempt: int = 1
    error: str | None = None
    outcome: str | None = None
    voice_url: str | None = None
    agent: asyncio.Task | None = None
    release: asyncio.Event = field(default_factory=asyncio.Event)  # lets a silent run end

    def record(self) -> dict:
        done = self.status != "running"
        return {"conversation_id": self.conversation, "status": self.status, "done": done,
                "text": self.reply if done else self.text, "label": self.label,
                "attempt": self.attempt, "error": self.error, "outcome": self.outcome,
                "voice_url": self.voice_url, "created_at": self.created_at}


@dataclass
class Task:
    number: int
    conversation: str
    run_id: str
    state: str = "running"  # running, done, error, stopped


@dataclass
class Upload:
    file_id: str
    name: str
    mime: str
    size: int
    conversation: str
    reply: dict  # what the upload was answered, repeated for a second delivery
    attached: bool = False

    def attachment(self) -> dict:
        return {"file_id": self.file_id, "name": self.name, "mime": self.mime, "size": self.size}


class Conversation:
    def __init__(self, name: str):
        self.name = name
        self.messages: list[dict] = []  # in seq order
        self.activity: list[dict] = []  # lane events, with a seq of their own

    def add(self, message: dict) -> dict:
        message["seq"] = self.messages[-1]["seq"] + 1 if self.messages else 1
        self.messages.append(message)
        return message

    def note(self, update: dict) -> dict:
        update["seq"] = self.activity[-1]["seq"] + 1 if self.activity else 1
        self.activity.append(update)
        return update

    def message(self, seq: int) -> dict | None:
        return next((m for m in self.messages if m["seq"] == seq), None)


def page(items: list[dict], since: int, size: int) -> tuple[list[dict], int, bool]:
    """Items with seq > since, oldest first, at most `size`; the cursor; whether more wait."""
    newer = [item for item in items if item["seq"] > since]
    taken = newer[:size]
    return taken, (taken[-1]["seq"] if taken else since), len(newer) > size


class Account:
    """One user's chat: conversations by name, tasks by number, runs by id, uploads."""

    def __init__(self):
        self.conversations: dict[str, Conversation] = {}
        self.tasks: dict[int, Task] = {}
        self.runs: dict[str, Run] = {}
        self.replies: dict[str, dict] = {}  # client_request_id -> the chat reply it got
        self.uploads: list[Upload] = []
        self.upload_requests: dict[str, Upload] = {}
        self.feedback: list[dict] = []

    def conversation(self, name: str) -> Conversation:
        if name not in self.conversations:
            self.conversations[name] = Conversation(name)
        return self.conversations[name]

    def new_task(self, conversation: str, run_id: str) -> Task:
        number = max(self.tasks, default=0) + 1
        self.tasks[number] = Task(number, conversation, run_id)
        return self.tasks[number]

    def upload_named(self, name: str, conversation: str) -> Upload | None:
        """The latest upload of that name in the conversation, one not yet attached first."""
        mine = [u for u in reversed(self.uploads) if u.name == name
                and u.conversation == conversation]
        return next((u for u in mine if not u.attached), mine[0] if mine else None)

    def stop_agents(self) -> None:
        for run in self.runs.values():
            if run.agent is not None:
                run.agent.cancel()


AGENT_MODES = ("normal", "error", "silent")


@dataclass
class AgentSettings:
    mode: str = "normal"
    step_delay: float = 0.05  # seconds before each step
    reply: str | None = None  # None = the scripted reply
    error: str | None = None  # None = the scripted error text
    tools: int = 1  # tool steps per run


@dataclass
class FeedSettings:
    page_size: int = 200
    duplicate: bool = False  # the next reply with messages repeats its last one
