"""Actions of the workspace pages: new projects and tasks, task states, automations switched
on and off or run at once. Each changes the user's own copy of the page, so the next GET
(and its digest) shows the change."""

import json
import re
import time

from aiohttp import web

import checks
from state import Page
from wire import Reject, dumps, json_body, reply


def _now_iso() -> str:
    return time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime())


def _read(call, path: str):
    stored = call.state.page(path, call.user.name)
    return json.loads(stored.body) if stored is not None else None


def _write(call, path: str, value) -> None:
    call.state.pages[(path, call.user.name)] = Page(dumps(value), "application/json")


def _title(body: dict, key: str) -> str:
    text = checks.take(body, key, str, required=True)
    if not text.strip():
        raise Reject(400, "bad_request", f"{key} must not be empty.")
    if len(text) > 200:
        raise Reject(400, "bad_request", f"{key} is longer than 200 characters.")
    return text.strip()


async def add_project(call) -> web.Response:
    name = _title(await json_body(call.request), "name")
    projects = _read(call, "webapi/projects") or []
    number = str(max([int(p["id"]) for p in projects if str(p.get("id", "")).isdigit()] + [0]) + 1)
    projects.append({"id": number, "name": name, "status": "active", "updated_at": _now_iso()})
    _write(call, "webapi/projects", projects)
    return reply({"ok": True, "id": number})


async def add_task(call) -> web.Response:
    body = await json_body(call.request)
    title = _title(body, "title")
    project = checks.take(body, "project_id", str, "")
    tasks = _read(call, "webapi/tasks") or []
    number = "t" + str(len(tasks) + 1)
    while any(t["id"] == number for t in tasks):
        number = "t" + str(int(number[1:]) + 1)
    task = {"id": number, "title": title, "status": "open"}
    if project:
        task["project_id"] = project
    tasks.append(task)
    _write(call, "webapi/tasks", tasks)
    return reply({"ok": True, "id": number})


def _task_to(status: str):
    async def handler(call) -> web.Response:
        await json_body(call.request, optional=True)
        tasks = _read(call, "webapi/tasks") or []
        for task in tasks:
            if task["id"] == call.match.group(1):
                task["status"] = status
                _write(call, "webapi/tasks", tasks)
                return reply({"ok": True})
        raise Reject(404, "task_not_found", f"There is no task {call.match.group(1)}.")
    return handler


async def automation(call) -> web.Response:
    await json_body(call.request, optional=True)
    page = _read(call, "webapi/automations") or {"automations": []}
    for item in page["automations"]:
        if item["id"] == call.match.group(1):
            if call.match.group(2) == "toggle":
                item["status"] = "disabled" if item["status"] == "enabled" else "enabled"
            else:
                item["last_run_at"] = _now_iso()
            _write(call, "webapi/automations", page)
            return reply({"ok": True, "status": item["status"]})
    raise Reject(404, "automation_not_found", f"There is no automation {call.match.group(1)}.")


ROUTES = {
    "projects/add": (False, {"POST": add_project}),
    "tasks/add": (False, {"POST": add_task}),
}
PATTERNS = [
    (re.compile(r"tasks/(t[0-9]{1,9})/done"), {"POST": _task_to("done")}),
    (re.compile(r"tasks/(t[0-9]{1,9})/reopen"), {"POST": _task_to("open")}),
    (re.compile(r"automations/([A-Za-z0-9_-]{1,40})/(toggle|run)"), {"POST": automation}),
]
