"""Health sync and the vault under /webapi/: strict about keys and types, as the hosted
service is. Each user's data hangs off their chat account, so a reset clears it too."""

import re
import time
from dataclasses import dataclass, field
from datetime import datetime, timedelta, timezone

from aiohttp import web

import checks
from wire import Reject, json_body, reply

_UUID = re.compile(r"[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}")
_DAY = re.compile(r"[0-9]{4}-[0-9]{2}-[0-9]{2}")
_FIELD = re.compile(r"[a-z][a-z0-9_]{0,39}")
_WORKOUT_KEYS = {"uuid", "activity", "start", "end", "duration_s", "kcal", "distance_m",
                 "avg_hr", "max_hr", "source"}
_DAY_METRICS = {"steps", "active_kcal", "exercise_min", "resting_hr"}
_SYNC_KEYS = {"device", "workouts", "deleted", "days"}
MAX_PAGE = 500

VAULT_KINDS = ("api_key", "passkey", "login", "note", "card", "signature")
# What an item shows in the list; every other field of a save is a secret value.
VAULT_META = ("title", "username", "url", "client", "service", "site", "location", "cardholder")


def _now_text() -> str:
    return datetime.now(timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ")


def _number(value) -> bool:
    return isinstance(value, (int, float)) and not isinstance(value, bool)


@dataclass
class Health:
    connected: bool = False
    device: str = ""
    last_sync_at: str | None = None
    workouts: dict[str, dict] = field(default_factory=dict)  # uuid -> row
    days: dict[str, dict] = field(default_factory=dict)  # "yyyy-mm-dd" -> metrics
    pages: list[dict] = field(default_factory=list)  # every accepted sync body, in order


@dataclass
class VaultEntry:
    id: str
    kind: str
    meta: dict[str, str]
    secrets: dict[str, str]  # in the order they were saved
    primary: bool
    updated_at: str

    def listed(self) -> dict:
        item = {"id": self.id, "kind": self.kind, "primary": self.primary,
                "has": list(self.secrets), "secrets": len(self.secrets),
                "updated_at": self.updated_at}
        item.update(self.meta)
        number = self.secrets.get("number", "")
        if self.kind == "card" and len(number) >= 4:
            item["last4"] = number[-4:]
        return item


@dataclass
class Vault:
    entries: dict[str, VaultEntry] = field(default_factory=dict)
    next_id: int = 1


def _health(call) -> Health:
    account = call.state.account(call.user.name)
    if not hasattr(account, "health"):
        account.health = Health()
    return account.health


def _vault(call) -> Vault:
    account = call.state.account(call.user.name)
    if not hasattr(account, "vault"):
        account.vault = Vault()
    return account.vault


# Health

def _window(health: Health, days: int) -> dict:
    since = time.time() - days * 86400
    rows = [w for w in health.workouts.values() if w["start"] >= since]
    day_rows = [v for d, v in health.days.items()
                if d >= (datetime.now(timezone.utc) - timedelta(days=days)).strftime("%Y-%m-%d")]
    heart = [w["avg_hr"] for w in rows if w["avg_hr"] is not None]
    return {
        "workouts": len(rows),
        "minutes": round(sum(w["duration_s"] for w in rows) / 60),
        "kcal": round(sum(w["kcal"] or 0 for w in rows)),
        "days": len({datetime.fromtimestamp(w["start"], timezone.utc).date() for w in rows}),
        "steps": round(sum(v.get("steps", 0) for v in day_rows)),
        "active_kcal": round(sum(v.get("active_kcal", 0) for v in day_rows)),
        "active_days": sum(1 for v in day_rows if v.get("exercise_min", 0) >= 30),
        "distance_km": round(sum(w["distance_m"] for w in rows) / 1000, 1),
        "avg_hr": round(sum(heart) / len(heart)) if heart else None,
    }


def _streak(health: Health) -> int:
    active = {datetime.fromtimestamp(w["start"], timezone.utc).date()
              for w in health.workouts.values()}
    day, streak = datetime.now(timezone.utc).date(), 0
    while day in active:
        streak, day = streak + 1, day - timedelta(days=1)
    return streak


def summary(health: Health) -> dict:
    rows = sorted(health.workouts.values(), key=lambda w: w["start"], reverse=True)
    by_activity: dict[str, dict] = {}
    for w in rows:
        entry = by_activity.setdefault(w["activity"], {"activity": w["activity"], "count": 0,
                                                       "minutes": 0, "kcal": 0})
        entry["count"] += 1
        entry["minutes"] += round(w["duration_s"] / 60)
        entry["kcal"] += round(w["kcal"] or 0)
    return {
        "connected": health.connected, "device": health.device,
        "last_sync_at": health.last_sync_at, "total_workouts": len(rows),
        "streak": _streak(health), "week": _window(health, 7), "month": _window(health, 30),
        "by_activity": sorted(by_activity.values(), key=lambda a: -a["count"]),
        "workouts": [{
            "uuid": w["uuid"], "activity": w["activity"],
            "start_at": datetime.fromtimestamp(w["start"], timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ"),
            "end_at": datetime.fromtimestamp(w["end"], timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ"),
            "minutes": round(w["duration_s"] / 60), "kcal": w["kcal"],
            "distance_m": w["distance_m"], "avg_hr": w["avg_hr"], "max_hr": w["max_hr"],
            "source": w["source"],
        } for w in rows[:20]],
    }


def _check_workout(row, index: int) -> dict:
    where = f"workouts[{index}]"
    if not isinstance(row, dict) or set(row) != _WORKOUT_KEYS:
        raise Reject(400, "bad_workout", f"{where} must have exactly {sorted(_WORKOUT_KEYS)}.")
    if not isinstance(row["uuid"], str) or not _UUID.fullmatch(row["uuid"]):
        raise Reject(400, "bad_workout", f"{where}.uuid must be an upper-case UUID.")
    for key in ("activity", "source"):
        if not isinstance(row[key], str):
            raise Reject(400, "bad_workout", f"{where}.{key} must be a string.")
    for key in ("start", "end", "duration_s", "distance_m"):
        if not _number(row[key]):
            raise Reject(400, "bad_workout", f"{where}.{key} must be a number.")
    for key in ("kcal", "avg_hr", "max_hr"):
        if row[key] is not None and not _number(row[key]):
            raise Reject(400, "bad_workout", f"{where}.{key} must be a number or null.")
    if row["end"] < row["start"]:
        raise Reject(400, "bad_workout", f"{where} ends before it starts.")
    return row


def _check_day(row, index: int) -> dict:
    where = f"days[{index}]"
    if not isinstance(row, dict) or not isinstance(row.get("day"), str) \
            or not _DAY.fullmatch(row["day"]):
        raise Reject(400, "bad_day", f"{where}.day must be a yyyy-MM-dd string.")
    extra = set(row) - _DAY_METRICS - {"day"}
    if extra:
        raise Reject(400, "bad_day", f"{where} has unknown keys {sorted(extra)}.")
    if not all(_number(row[key]) for key in set(row) & _DAY_METRICS):
        raise Reject(400, "bad_day", f"{where} values must be numbers.")
    return row


async def health_read(call) -> web.Response:
    return reply({"health": summary(_health(call))})


async def health_sync(call) -> web.Response:
    body = await json_body(call.request)
    if set(body) != _SYNC_KEYS:
        raise Reject(400, "bad_request", f"The body must have exactly {sorted(_SYNC_KEYS)}.")
    device = checks.take(body, "device", str, required=True)
    workouts, deleted, days = body["workouts"], body["deleted"], body["days"]
    if not all(isinstance(v, list) for v in (workouts, deleted, days)):
        raise Reject(400, "bad_request", "workouts, deleted and days must be lists.")
    if len(workouts) + len(deleted) > MAX_PAGE:
        raise Reject(413, "page_too_large", f"At most {MAX_PAGE} changes per page.")
    rows = [_check_workout(row, i) for i, row in enumerate(workouts)]
    if not all(isinstance(u, str) and _UUID.fullmatch(u) for u in deleted):
        raise Reject(400, "bad_request", "deleted must hold upper-case UUIDs.")
    day_rows = [_check_day(row, i) for i, row in enumerate(days)]
    health = _health(call)
    for row in rows:
        health.workouts[row["uuid"]] = row
    for uuid in deleted:
        health.workouts.pop(uuid, None)
    for row in day_rows:
        health.days[row["day"]] = {k: v for k, v in row.items() if k != "day"}
    health.connected, health.device, health.last_sync_at = True, device, _now_text()
    health.pages.append(body)
    return reply({"ok": True, "health": summary(health)})


async def health_disconnect(call) -> web.Response:
    body = await json_body(call.request)
    if set(body) != {"forget"}:
        raise Reject(400, "bad_request", "The body must be exactly {\"forget\": bool}.")
    forget = checks.take(body, "forget", bool, required=True)
    health = _health(call)
    health.connected = False
    if forget:
        health.workouts.clear()
        health.days.clear()
        health.device, health.last_sync_at = "", None
    return reply({"ok": True})


# Vault

def _entry(call) -> VaultEntry:
    entry = _vault(call).entries.get(call.match.group(1))
    if entry is None:
        raise Reject(404, "not_found", "There is no such vault item.")
    return entry


def _fields(body: dict) -> tuple[str, bool, dict, dict]:
    kind = checks.take(body, "kind", str, required=True)
    if kind not in VAULT_KINDS:
        raise Reject(400, "bad_kind", f"kind must be one of {', '.join(VAULT_KINDS)}.")
    primary = checks.take(body, "primary", bool, required=True)
    meta, secrets = {}, {}
    for key, value in body.items():
        if key in ("kind", "primary"):
            continue
        if not _FIELD.fullmatch(key) or not isinstance(value, str):
            raise Reject(400, "bad_field", f"{key} must be a lower-case name with a string value.")
        (meta if key in VAULT_META else secrets)[key] = value
    return kind, primary, meta, secrets


def _make_primary(vault: Vault, entry: VaultEntry) -> None:
    if entry.primary:
        for other in vault.entries.values():
            if other is not entry and other.kind == entry.kind:
                other.primary = False


async def vault_list(call) -> web.Response:
    entries = sorted(_vault(call).entries.values(), key=lambda e: e.updated_at, reverse=True)
    return reply({"items": [e.listed() for e in entries]})


async def vault_create(call) -> web.Response:
    kind, primary, meta, secrets = _fields(await json_body(call.request))
    if not meta.get("title"):
        raise Reject(400, "bad_field", "title is required.")
    vault = _vault(call)
    entry = VaultEntry(f"v{vault.next_id}", kind, meta, secrets, primary, _now_text())
    vault.next_id += 1
    vault.entries[entry.id] = entry
    _make_primary(vault, entry)
    return reply({"item": entry.listed()})


async def vault_update(call) -> web.Response:
    entry = _entry(call)
    kind, primary, meta, secrets = _fields(await json_body(call.request))
    if kind != entry.kind:
        raise Reject(400, "bad_kind", "An item keeps its kind.")
    entry.meta.update(meta)
    entry.secrets.update(secrets)  # secrets left out stay as they were
    entry.primary, entry.updated_at = primary, _now_text()
    _make_primary(_vault(call), entry)
    return reply({"item": entry.listed()})


async def vault_delete(call) -> web.Response:
    entry = _entry(call)
    del _vault(call).entries[entry.id]
    return reply({"ok": True})


async def vault_reveal(call) -> web.Response:
    entry = _entry(call)
    body = await json_body(call.request, optional=True)
    if body:
        raise Reject(400, "bad_request", "reveal takes no fields.")
    value = next(iter(entry.secrets.values()), "")
    return reply({"item": entry.listed(), "value": value})


ROUTES = {
    "health": (False, {"GET": health_read}),
    "health/sync": (False, {"POST": health_sync}),
    "health/disconnect": (False, {"POST": health_disconnect}),
    "vault": (False, {"GET": vault_list, "POST": vault_create}),
}
PATTERNS = [
    (re.compile(r"vault/([A-Za-z0-9_-]{1,40})"), {"POST": vault_update, "DELETE": vault_delete}),
    (re.compile(r"vault/([A-Za-z0-9_-]{1,40})/reveal"), {"POST": vault_reveal}),
]
