"""Crash reports and push: "client-report", "push/register", "push/status", "push/test"."""

import re
import time
import weakref

from aiohttp import web

import checks
from wire import Reject, json_body, reply

# Kept beside each user's chat account, so a reset of the state clears them too.
_DEVICES: "weakref.WeakKeyDictionary" = weakref.WeakKeyDictionary()
_REPORTS: "weakref.WeakKeyDictionary" = weakref.WeakKeyDictionary()

_TOKEN = re.compile(r"[0-9a-f]{16,512}")
_NUMBER = (int, float)
# kind -> {key: (types, required)}
_VITALS = {"surface": (str, False), "foreground": (bool, False), "worst_stall_s": (_NUMBER, False),
           "uptime_s": (_NUMBER, False), "system": (str, False)}
_DEATH = {"kind": (str, True), "reason": (str, True), "trace": (str, True),
          "build": (str, True), **_VITALS}
_REPORT_KEYS = {
    "crash": _DEATH,
    "hang": _DEATH,
    "killed_in_foreground": _DEATH,
    "metrickit": {"kind": (str, True), "reason": (str, True), "build": (str, True),
                  "truncated": (bool, True), "payload": (dict, True), "raw": (str, True)},
}
MAX_PAYLOAD = 400_000


def _strict(body: dict, keys: dict) -> None:
    unknown = sorted(set(body) - set(keys))
    if unknown:
        raise Reject(400, "bad_request", f"Unknown keys: {', '.join(unknown)}.")
    for key, (kinds, required) in keys.items():
        value = checks.take(body, key, kinds, None, required)
        if required and value is None:
            raise Reject(400, "bad_request", f"{key} is required.")


async def client_report(call) -> web.Response:
    body = await json_body(call.request)
    kind = body.get("kind")
    if kind not in _REPORT_KEYS:
        raise Reject(400, "bad_kind", f"kind must be one of {', '.join(_REPORT_KEYS)}.")
    _strict(body, _REPORT_KEYS[kind])
    if kind == "metrickit" and len(body["raw"].encode()) > MAX_PAYLOAD:
        raise Reject(413, "too_large", f"raw is limited to {MAX_PAYLOAD} bytes.")
    reports = _REPORTS.setdefault(call.state.account(call.user.name), [])
    reports.append({**body, "received_at": time.time()})
    return reply({"ok": True, "id": len(reports)})


async def register(call) -> web.Response:
    body = await json_body(call.request)
    _strict(body, {"token": (str, True), "env": (str, True), "device_name": (str, True),
                   "app_build": (str, True)})
    if not _TOKEN.fullmatch(body["token"]):
        raise Reject(400, "bad_token", "token must be lower-case hexadecimal.")
    if body["env"] not in ("production", "development"):
        raise Reject(400, "bad_env", "env must be production or development.")
    devices = _DEVICES.setdefault(call.state.account(call.user.name), {})
    devices[body["token"]] = {"device_name": body["device_name"], "env": body["env"],
                              "app_build": body["app_build"], "token_tail": body["token"][-8:],
                              "registered_at": time.time()}
    return reply({"ok": True, "devices": len(devices)})


def _devices(call) -> dict:
    return _DEVICES.get(call.state.account(call.user.name), {})


async def status(call) -> web.Response:
    # This stand-in can always "send"; tests give other readiness through a fault.
    return reply({"ok": True, "ready": True, "errors": [],
                  "devices": list(_devices(call).values())})


async def test(call) -> web.Response:
    await json_body(call.request, optional=True)
    devices = _devices(call)
    if not devices:
        raise Reject(409, "no_device", "No device is registered for this account.")
    return reply({"ok": True, "sent": len(devices)})


ROUTES = {
    "client-report": (False, {"POST": client_report}),
    "push/register": (False, {"POST": register}),
    "push/status": (False, {"GET": status}),
    "push/test": (False, {"POST": test}),
}
