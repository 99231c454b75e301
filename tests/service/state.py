"""The service's memory: users, sessions, sign-in tokens, prefs, pages, chats, faults and the
log."""

import secrets
from dataclasses import dataclass, field

import seed
from chat import Account, AgentSettings, FeedSettings
from hub import Hub
from wire import dumps


@dataclass
class User:
    name: str
    password: str
    role: str = "user"
    email: str = ""
    pages: list[str] = field(default_factory=list)
    voice_live: bool = False
    workspace_id: str = ""
    workspace_name: str = ""


@dataclass
class Page:
    body: bytes
    content_type: str
    refreshing: float | None = None  # seconds announced in X-RB-Refreshing
    refreshing_times: int = -1  # replies left that carry it; -1 = all of them

    def take_refreshing(self) -> float | None:
        if self.refreshing is None or self.refreshing_times == 0:
            return None
        if self.refreshing_times > 0:
            self.refreshing_times -= 1
        return self.refreshing


@dataclass
class Fault:
    match: str  # prefix of "path?query" without the leading slash, or "*"
    method: str | None = None
    status: int | None = None
    body: bytes | None = None
    content_type: str | None = None
    headers: dict[str, str] = field(default_factory=dict)
    delay: float = 0.0
    drop: bool = False
    after: str | None = None  # "drop": serve, then close instead of replying; "hold": serve,
    #                           then wait `delay` seconds before replying
    drop_mid_body: bool = False  # close after reading part of the body; nothing is served
    times: int = 1  # -1 = forever

    def matches(self, method: str, target: str) -> bool:
        if self.method is not None and self.method.upper() != method.upper():
            return False
        return self.match == "*" or target.startswith(self.match)


class State:
    LOG_LIMIT = 10000  # a demo may run for days; tests reset long before this

    def __init__(self):
        self.hub = Hub()  # open chat sockets, closed on shut-down; they survive a reset
        self.accounts: dict[str, Account] = {}
        self.reset()

    def reset(self) -> None:
        for account in self.accounts.values():
            account.stop_agents()
        self.accounts = {}
        self.agent = AgentSettings()
        self.feed = FeedSettings()
        self.hub.rules.clear()
        self.users: dict[str, User] = {}
        for name, password, role, email, pages, voice, ws_id, ws_name in seed.USERS:
            self.users[name] = User(name, password, role, email, list(pages), voice, ws_id,
                                    ws_name)
        self.sessions: dict[str, str] = {}  # cookie -> user name, in creation order
        self.tokens: dict[str, str] = {}  # one-time sign-in token -> user name
        self.prefs: dict[str, dict[str, str]] = {}
        # (path, user or None for everyone) -> Page
        self.pages: dict[tuple[str, str | None], Page] = {}
        for path, value in seed.JSON_PAGES.items():
            self.pages[(path, None)] = Page(dumps(value), "application/json")
        for path, (data, content_type) in seed.RAW_PAGES.items():
            self.pages[(path, None)] = Page(data, content_type)
        self.faults: list[Fault] = []
        self.log: list[dict] = []
        self.voicelive = None  # voicelive.Voice, made on first use
        self.speeches: dict = {}  # (user, conversation, seq) -> voicenotes.Speech

    def remember(self, entry: dict) -> None:
        self.log.append(entry)
        if len(self.log) > self.LOG_LIMIT:
            del self.log[:len(self.log) - self.LOG_LIMIT]

    # Sessions and tokens

    def open_session(self, user: str) -> str:
        cookie = secrets.token_urlsafe(32)
        self.sessions[cookie] = user
        return cookie

    def user_of(self, cookie: str | None) -> User | None:
        name = self.sessions.get(cookie) if cookie else None
        return self.users.get(name) if name is not None else None

    def end_sessions(self, user: str) -> int:
        ended = [cookie for cookie, name in self.sessions.items() if name == user]
        for cookie in ended:
            del self.sessions[cookie]
        return len(ended)

    def make_token(self, user: str) -> str:
        token = secrets.token_urlsafe(24)
        self.tokens[token] = user
        return token

    def redeem(self, token: str) -> User | None:
        name = self.tokens.pop(token, None)
        return self.users.get(name) if name is not None else None

    def account(self, user: str) -> Account:
        """The user's chat, made on first use."""
        if user not in self.accounts:
            self.accounts[user] = Account()
        return self.accounts[user]

    def delete_user(self, user: str) -> None:
        self.users.pop(user, None)
        gone = self.accounts.pop(user, None)
        if gone is not None:
            gone.stop_agents()
        self.end_sessions(user)
        self.tokens = {t: name for t, name in self.tokens.items() if name != user}
        self.prefs.pop(user, None)
        self.pages = {key: page for key, page in self.pages.items() if key[1] != user}

    # Pages

    def page(self, path: str, user: str) -> Page | None:
        return self.pages.get((path, user)) or self.pages.get((path, None))

    # Faults

    def take_fault(self, method: str, target: str) -> Fault | None:
        for index, fault in enumerate(self.faults):
            if fault.matches(method, target):
                if fault.times > 0:
                    fault.times -= 1
                    if fault.times == 0:
                        del self.faults[index]
                return fault
        return None
