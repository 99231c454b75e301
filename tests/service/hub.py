"""The open chat sockets of every user, and the test rules that lose or repeat frames."""

from dataclasses import dataclass

from aiohttp import WSCloseCode, web

from wire import dumps


@dataclass
class Rule:
    types: set[str]
    copies: int  # 0 loses the frame, 2 sends it twice
    times: int  # frames left to treat; -1 = for ever
    user: str | None = None  # None = every user


class Hub:
    def __init__(self):
        # Survives a reset: the sockets are open connections, not stored data.
        self.sockets: dict[web.WebSocketResponse, tuple[str, web.Request]] = {}
        self.rules: list[Rule] = []

    def add(self, ws: web.WebSocketResponse, user: str, request: web.Request) -> None:
        self.sockets[ws] = (user, request)

    def remove(self, ws: web.WebSocketResponse) -> None:
        self.sockets.pop(ws, None)

    def of(self, user: str) -> list[web.WebSocketResponse]:
        return [ws for ws, (owner, _) in self.sockets.items() if owner == user]

    def _copies(self, user: str, kind: str) -> int:
        for index, rule in enumerate(self.rules):
            if kind in rule.types and rule.user in (None, user):
                if rule.times > 0:
                    rule.times -= 1
                    if rule.times == 0:
                        del self.rules[index]
                return rule.copies
        return 1

    async def send(self, user: str, frame: dict) -> None:
        """The frame to every socket of the user, unless a rule loses or repeats it."""
        copies = self._copies(user, frame["type"])
        text = dumps(frame).decode()
        for ws in self.of(user):
            try:
                for _ in range(copies):
                    await ws.send_str(text)
            except (ConnectionError, RuntimeError):
                self.remove(ws)  # it went away meanwhile; its handler ends on its own

    def drop(self, user: str) -> int:
        """Cuts the user's sockets without a closing handshake, like a lost network."""
        sockets = self.of(user)
        for ws in sockets:
            transport = self.sockets[ws][1].transport
            if transport is not None:
                transport.close()
            self.remove(ws)
        return len(sockets)

    async def close_all(self) -> None:
        for ws in list(self.sockets):
            await ws.close(code=WSCloseCode.GOING_AWAY, message=b"Server shutting down")
