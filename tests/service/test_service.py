"""Self-test of the reference service, run as the C++ fixture runs it: a child process on a
port the system picks. /usr/bin/python3 -m unittest discover -s tests/service"""

import asyncio
import base64
import hashlib
import http.client
import json
import os
import re
import signal
import subprocess
import sys
import time
import unittest
import urllib.parse

import aiohttp

SERVER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "server.py")
JSON = {"Content-Type": "application/json"}


class Service:
    def __init__(self, *args):
        self.process = subprocess.Popen(
            [sys.executable, SERVER, *args], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, text=True)
        self.line = self.process.stdout.readline()
        found = re.fullmatch(r"LISTENING http://127\.0\.0\.1:(\d+)\n", self.line)
        assert found, f"unexpected start-up line {self.line!r}"
        self.port = int(found.group(1))
        self.base = f"http://127.0.0.1:{self.port}"

    def stop(self):
        if self.process.poll() is None:
            self.process.terminate()
        self.process.communicate(timeout=10)

    def call(self, method, path, body=None, headers=None):
        """(status, headers as a list, body bytes); body may be bytes, str or a JSON value."""
        if body is not None and not isinstance(body, (bytes, str)):
            body = json.dumps(body)
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=20)
        try:
            connection.request(method, path, body=body, headers=headers or {})
            reply = connection.getresponse()
            return reply.status, reply.getheaders(), reply.read()
        finally:
            connection.close()

    def json(self, method, path, body=None, headers=None):
        status, _, data = self.call(method, path, body, headers)
        return status, (json.loads(data) if data else None)

    def control(self, method, action, body=None):
        status, value = self.json(method, "/_control/" + action, body)
        assert status == 200, (action, status, value)
        return value

    def login(self, user="demo", password="demo-password"):
        status, headers, _ = self.call("POST", "/webapi/auth/login",
                                       {"username": user, "password": password}, JSON)
        assert status == 200, status
        cookie = dict(headers)["Set-Cookie"]
        return {"Cookie": cookie.split(";")[0]}


def header(headers, name):
    return next((value for key, value in headers if key.lower() == name.lower()), None)


def multipart(parts, boundary="rbp-B0UND", closing=True, line=b"\r\n"):
    out = b""
    for head, data in parts:
        out += b"--" + boundary.encode() + line + head.encode() + line + line + data + line
    if closing:
        out += b"--" + boundary.encode() + b"--" + line
    return out


class ServiceTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.service = Service()

    @classmethod
    def tearDownClass(cls):
        cls.service.stop()

    def setUp(self):
        self.s = self.service
        self.s.control("POST", "reset")

    def test_cookie_is_required_except_on_open_endpoints(self):
        cookie = self.s.login()["Cookie"]
        rows = [  # method, path, headers, expected status
            ("GET", "/webapi/me", {}, 401),
            ("GET", "/webapi/tasks", {}, 401),
            ("GET", "/webapi/nowhere", {}, 401),
            ("GET", "/webapi/ws", {}, 401),
            ("GET", "/webapi/me", {"Cookie": cookie.replace("rb_web_session", "session")}, 401),
            ("GET", "/webapi/me", {"Cookie": "rb_web_session="}, 401),
            ("GET", "/webapi/me", {"Cookie": "a=1; " + cookie + "; b=2"}, 200),
            ("GET", "/webapi/public/status", {}, 200),
            ("GET", "/webapi/auth/login", {}, 405),
        ]
        for method, path, headers, expected in rows:
            with self.subTest(path=path, headers=headers):
                status, body = self.s.json(method, path, None, headers)
                self.assertEqual(status, expected)
                if expected == 401:
                    self.assertEqual(body, {"error": "unauthorized", "detail": "Sign in first."})

    def test_json_bodies_are_held_to_the_rules(self):
        good = json.dumps({"username": "demo", "password": "demo-password"})
        rows = [  # content type, body, status, error
            (None, good, 415, "unsupported_media_type"),
            ("text/plain", good, 415, "unsupported_media_type"),
            ("application/json; charset=latin-1", good, 415, "unsupported_media_type"),
            ("application/json; charset=utf-8", good, 200, None),
            ("application/json", "", 400, "bad_json"),
            ("application/json", "{", 400, "bad_json"),
            ("application/json", "[]", 400, "bad_json"),
            ("application/json", '{"username": NaN}', 400, "bad_json"),
            ("application/json", b'{"username": "\xff"}', 400, "bad_json"),
            ("application/json", '{"username": "demo", "password": 5}', 400, "bad_request"),
            ("application/json", '{"username": "demo", "password": "nope"}', 401,
             "bad_credentials"),
        ]
        for content_type, body, expected, error in rows:
            with self.subTest(content_type=content_type, body=body):
                headers = {"Content-Type": content_type} if content_type else {}
                status, reply = self.s.json("POST", "/webapi/auth/login", body, headers)
                self.assertEqual(status, expected)
                if error:
                    self.assertEqual(reply["error"], error)

    def test_sign_in_sign_out_and_account_deletion(self):
        status, headers, body = self.s.call(
            "POST", "/webapi/auth/login", {"username": "owner", "password": "owner-password"},
            JSON)
        self.assertEqual(json.loads(body), {"ok": True, "user": "owner", "role": "owner"})
        self.assertRegex(header(headers, "Set-Cookie"),
                         r"^rb_web_session=[\w-]+; Path=/; HttpOnly; SameSite=Lax$")

        token = self.s.control("POST", "token", {"user": "demo"})["token"]
        first = self.s.json("POST", "/webapi/auth/session", {"token": token}, JSON)
        self.assertEqual(first, (200, {"ok": True, "user": "demo"}))
        again = self.s.json("POST", "/webapi/auth/session", {"token": token}, JSON)
        self.assertEqual(again[0], 401)
        self.assertEqual(again[1]["detail"], "This sign-in link is no longer valid.")

        one, two = self.s.login(), self.s.login()
        self.assertEqual(self.s.json("POST", "/webapi/auth/logout", None, one), (200, {"ok": True}))
        self.assertEqual(self.s.json("GET", "/webapi/me", None, one)[0], 401)
        self.assertEqual(self.s.json("GET", "/webapi/me", None, two)[0], 200)
        self.s.control("POST", "expire", {"user": "demo"})
        self.assertEqual(self.s.json("GET", "/webapi/me", None, two)[0], 401)

        mine, other = self.s.login(), self.s.login()
        deleted = self.s.json("POST", "/webapi/auth/delete-account", {}, {**mine, **JSON})
        self.assertEqual(deleted, (200, {"deleted": True}))
        self.assertEqual(self.s.json("GET", "/webapi/me", None, other)[0], 401)
        users = {row["user"] for row in self.s.control("GET", "sessions")["sessions"]}
        self.assertEqual(users, {"owner"})

    def test_me_and_prefs(self):
        guest = self.s.login("tt_7f3a9c", "guest-password")
        status, me = self.s.json("GET", "/webapi/me", None, guest)
        self.assertEqual(me["pages"], ["chat"])
        self.assertIs(me["voice_live"], True)
        self.assertEqual(me["workspace"]["id"], "ws-guest")
        post = {**guest, **JSON}
        self.assertEqual(self.s.json("POST", "/webapi/prefs", {"lang": "he"}, post)[1]["prefs"],
                         {"lang": "he"})
        self.assertEqual(self.s.json("POST", "/webapi/prefs", {"skin": "dusk", "n": 1}, post),
                         (400, {"error": "bad_pref"}))
        self.assertEqual(self.s.json("GET", "/webapi/prefs", None, guest)[1],
                         {"prefs": {"lang": "he"}})

    def test_conditional_pages(self):
        demo = self.s.login()
        _, headers, body = self.s.call("GET", "/webapi/tasks?offset=0", None, demo)
        self.assertIsInstance(json.loads(body), list)
        have = hashlib.sha256(body).hexdigest()
        rows = [(have, 304), (have.upper(), 200), ("0" * 64, 200)]
        for sent, expected in rows:
            with self.subTest(sent=sent):
                status, _, again = self.s.call("GET", "/webapi/tasks?offset=50", None,
                                               {**demo, "X-RB-Have": sent})
                self.assertEqual(status, expected)
                self.assertEqual(again, b"" if expected == 304 else body)

        self.s.control("POST", "page", {"path": "webapi/tasks", "refreshing": 2.5,
                                        "refreshing_times": 2})
        marks = [header(self.s.call("GET", "/webapi/tasks", None, {**demo, "X-RB-Have": h})[1],
                        "X-RB-Refreshing") for h in (have, "", have)]
        self.assertEqual(marks, ["2.5", "2.5", None])

    def test_pages_set_for_one_user_shadow_the_shared_one(self):
        self.s.control("POST", "page", {"path": "/webapi/tasks", "user": "demo",
                                        "body": {"b": 1, "a": "é"}})
        _, _, mine = self.s.call("GET", "/webapi/tasks", None, self.s.login())
        self.assertEqual(mine, '{"a":"é","b":1}'.encode())
        _, _, theirs = self.s.call("GET", "/webapi/tasks", None, self.s.login("owner",
                                                                              "owner-password"))
        self.assertIsInstance(json.loads(theirs), list)

    def test_downloads(self):
        demo = self.s.login()
        name = "דוח שבועי.txt"
        quoted = urllib.parse.quote(name)
        status, headers, data = self.s.call("GET", "/webapi/files/" + quoted, None, demo)
        self.assertEqual(status, 200)
        disposition = header(headers, "Content-Disposition")
        self.assertTrue(disposition.startswith("attachment; filename*=UTF-8''"))
        self.assertEqual(urllib.parse.unquote(disposition.split("''", 1)[1]), name)
        _, raw_headers, raw = self.s.call("GET", "/webapi/raw/" + quoted, None, demo)
        self.assertEqual(raw, data)
        self.assertIsNone(header(raw_headers, "Content-Disposition"))
        self.s.control("POST", "page", {"path": "webapi/files/b.bin", "raw_b64": "AP8="})
        self.assertEqual(self.s.call("GET", "/webapi/files/b.bin", None, demo)[2], b"\x00\xff")

    def test_fault_replies(self):
        demo = self.s.login()
        rows = [  # fault, expected status, content type, body
            ({"status": 502}, 502, "text/html",
             b"<html><body><h1>502 Bad Gateway</h1></body></html>"),
            ({"status": 522}, 522, "text/html", None),
            ({"status": 429}, 429, "application/json",
             b'{"detail":"Slow down.","error":"rate_limited"}'),
            ({"status": 401}, 401, "application/json", b'{"error":"unauthorized"}'),
            ({"status": 200, "body": '{"ok":true}'}, 200, "application/json", b'{"ok":true}'),
            ({"status": 503, "body": "down", "content_type": "text/plain"}, 503, "text/plain",
             b"down"),
            ({"status": 200, "headers": {"X-RB-Refreshing": "3"}}, 200, None, b""),
        ]
        for fault, expected, content_type, body in rows:
            with self.subTest(fault=fault):
                self.s.control("POST", "fault", {"match": "webapi/projects", **fault})
                status, headers, data = self.s.call("GET", "/webapi/projects", None, demo)
                self.assertEqual(status, expected)
                if content_type:
                    self.assertEqual(header(headers, "Content-Type"), content_type)
                if body is not None:
                    self.assertEqual(data, body)
                if "headers" in fault:
                    self.assertEqual(header(headers, "X-RB-Refreshing"), "3")
        # Counted down and then gone: the next request is served normally.
        self.assertEqual(self.s.call("GET", "/webapi/projects", None, demo)[0], 200)

    def test_fault_matching_and_counting(self):
        demo = self.s.login()
        self.s.control("POST", "fault", {"match": "webapi/tasks?offset=5", "status": 500})
        self.s.control("POST", "fault", {"match": "*", "method": "post", "status": 503,
                                         "times": 2})
        self.s.control("POST", "fault", {"match": "webapi/", "status": 504, "times": -1})
        sequence = [("GET", "/webapi/tasks?offset=50", 500), ("POST", "/webapi/me", 503),
                    ("GET", "/webapi/tasks", 504), ("POST", "/webapi/x", 503),
                    ("POST", "/webapi/x", 504), ("GET", "/webapi/me", 504)]
        got = [self.s.call(method, path, None, demo)[0] for method, path, _ in sequence]
        self.assertEqual(got, [status for _, _, status in sequence])
        self.s.control("DELETE", "faults")
        self.assertEqual(self.s.call("GET", "/webapi/me", None, demo)[0], 200)

    def test_drop_and_delay(self):
        demo = self.s.login()
        self.s.control("DELETE", "log")
        self.s.control("POST", "fault", {"match": "webapi/me", "drop": True})
        with self.assertRaises((http.client.RemoteDisconnected, ConnectionError)):
            self.s.call("GET", "/webapi/me", None, demo)
        self.s.control("POST", "fault", {"match": "webapi/me", "status": None, "delay": 0.3})
        started = time.monotonic()
        self.assertEqual(self.s.call("GET", "/webapi/me", None, demo)[0], 200)
        self.assertGreaterEqual(time.monotonic() - started, 0.3)
        statuses = [row["status"] for row in self.s.control("GET", "log")["requests"]]
        self.assertEqual(statuses, [0, 200])

    def test_uploads(self):
        cookie = self.s.login()
        data = bytes(range(256)) * 3
        file_part = ('Content-Disposition: form-data; name="file"; filename="a b.m4a"\r\n'
                     "Content-Type: audio/mp4", data)
        field = ('Content-Disposition: form-data; name="kind"', "voice ✓".encode())
        good = multipart([field, file_part])
        rows = [  # description, body, content type, status, detail fragment
            ("valid", good, None, 200, None),
            ("quoted boundary", good, 'multipart/form-data; boundary="rbp-B0UND"', 200, None),
            ("bare LF", multipart([field, file_part], line=b"\n"), None, 400, "boundary"),
            ("LF between headers", multipart([(
                'Content-Disposition: form-data; name="f"; filename="x"\nContent-Type: a/b',
                b"x")]), None, 400, "header line"),
            ("not closed", multipart([field, file_part], closing=False), None, 400, "closed"),
            ("preamble", b"hi\r\n" + good, None, 400, "start"),
            ("epilogue", good + b"more", None, 400, "after"),
            ("no file", multipart([field]), None, 400, "no file part"),
            ("two files", multipart([file_part, file_part]), None, 400, "more than one"),
            ("field twice", multipart([field, field, file_part]), None, 400, "twice"),
            ("no name", multipart([("Content-Disposition: form-data", b"x"), file_part]), None,
             400, "no name"),
            ("no type", multipart([('Content-Disposition: form-data; name="f"; filename="x"',
                                    b"x")]), None, 400, "Content-Type"),
            ("other boundary", good, "multipart/form-data; boundary=other", 400, "start"),
            ("no boundary", good, "multipart/form-data", 400, "boundary"),
            ("json", good, "application/json", 415, None),
        ]
        for name, body, content_type, expected, detail in rows:
            with self.subTest(name):
                headers = {**cookie, "Content-Type":
                           content_type or "multipart/form-data; boundary=rbp-B0UND"}
                status, reply = self.s.json("POST", "/webapi/upload", body, headers)
                self.assertEqual(status, expected, reply)
                if detail:
                    self.assertEqual(reply["error"], "bad_multipart")
                    self.assertIn(detail, reply["detail"])
        _, reply = self.s.json("POST", "/webapi/upload", good, {
            **cookie, "Content-Type": "multipart/form-data; boundary=rbp-B0UND"})
        self.assertRegex(reply.pop("file_id"), r"^file_[0-9a-f]{16}$")
        self.assertEqual(reply, {"ok": True, "part": "file", "filename": "a b.m4a",
                                 "name": "a b.m4a",
                                 "mime": "audio/mp4", "size": len(data),
                                 "sha256": hashlib.sha256(data).hexdigest(),
                                 "fields": {"kind": "voice ✓"}})

    def test_log_keeps_what_the_client_sent(self):
        cookie = self.s.login()
        self.s.control("DELETE", "log")
        self.s.call("POST", "/webapi/echo/x?q=a%20b", b"\xff\x00",
                    {**cookie, "X-MiXeD-Case": "yes"})
        self.s.control("GET", "sessions")
        requests = self.s.control("GET", "log")["requests"]
        self.assertEqual(len(requests), 1)
        entry = requests[0]
        self.assertEqual((entry["method"], entry["path"], entry["query_string"], entry["status"]),
                         ("POST", "webapi/echo/x", "q=a%20b", 200))
        self.assertEqual(entry["headers"]["X-MiXeD-Case"], "yes")
        self.assertEqual((entry["body"], base64.b64decode(entry["body_b64"])), ("", b"\xff\x00"))

    def test_echo(self):
        status, echo = self.s.json("GET", "/webapi/echo?q=a%20b&lang=he&q=2", None,
                                   {**self.s.login(), "X-RB-Have": "abc"})
        self.assertEqual(status, 200)
        self.assertEqual(echo["query_string"], "q=a%20b&lang=he&q=2")
        self.assertEqual(echo["query"], {"q": "a b", "lang": "he"})
        self.assertEqual(echo["headers"]["X-RB-Have"], "abc")

    def test_reset_returns_to_the_seed(self):
        self.s.control("POST", "user", {"user": "zed", "password": "pw", "pages": ["x"]})
        self.s.control("POST", "page", {"path": "webapi/tasks", "raw": "changed"})
        self.s.json("POST", "/webapi/auth/delete-account", {}, {**self.s.login("zed", "pw"),
                                                               **JSON})
        self.s.control("POST", "fault", {"match": "*", "status": 500, "times": -1})
        self.s.control("POST", "reset")
        demo = self.s.login()
        self.assertNotEqual(self.s.call("GET", "/webapi/tasks", None, demo)[2], b"changed")
        self.assertEqual(self.s.json("POST", "/webapi/auth/login",
                                     {"username": "zed", "password": "pw"}, JSON)[0], 401)
        self.assertEqual(self.s.control("GET", "log")["requests"][-1]["status"], 401)

    def test_socket(self):
        async def run():
            cookie = self.s.login("tt_7f3a9c", "guest-password")
            async with aiohttp.ClientSession() as session:
                async with session.ws_connect(self.s.base + "/webapi/ws", headers=cookie,
                                              max_msg_size=0, autoclose=False) as ws:
                    hello = json.loads(await ws.receive_str())
                    await ws.send_str("שלום")  # not a request: no answer
                    await ws.send_str(json.dumps({"type": "big", "size": 1000}))
                    big = await ws.receive_str()
                    # A message of 8 MiB is taken in, and the socket stays usable.
                    await ws.send_str("y" * (8 * 1024 * 1024))
                    await ws.send_str(json.dumps({"type": "big", "size": 8 * 1024 * 1024}))
                    long_big = await ws.receive_str()
                    return hello, big, long_big

        hello, big, long_big = asyncio.run(run())
        self.assertEqual(hello, {"type": "hello", "user": "tt_7f3a9c"})
        self.assertEqual(len(big.encode()), 1000)
        self.assertEqual(json.loads(big)["type"], "big")
        self.assertEqual(len(long_big.encode()), 8 * 1024 * 1024)


class LifecycleTest(unittest.TestCase):
    def test_stdin_eof_stops_the_service(self):
        service = Service("--exit-on-stdin-eof")
        out, _ = service.process.communicate(timeout=10)  # closes stdin, waits
        self.assertEqual((service.process.returncode, out), (0, ""))

    def test_sigterm_stops_the_service_quietly(self):
        service = Service()
        service.process.send_signal(signal.SIGTERM)
        out, err = service.process.communicate(timeout=10)
        self.assertEqual((service.process.returncode, out, err), (0, "", ""))


if __name__ == "__main__":
    unittest.main()
