"""Self-test of the chat side of the reference service: conversations, the scripted agent,
the chat socket, uploads and the faults a client must survive."""

import asyncio
import json
import time
import unittest

import aiohttp

import test_service as base

JSON = base.JSON
FORM = "multipart/form-data; boundary=rbp-B0UND"


def file_part(name="plan.pdf", data=b"%PDF-1.4 plan", mime="application/pdf"):
    return (f'Content-Disposition: form-data; name="file"; filename="{name}"\r\n'
            f"Content-Type: {mime}", data)


def form_field(name, value):
    return (f'Content-Disposition: form-data; name="{name}"', value.encode())


async def collect(ws, last):
    """Frames after the greeting, up to and including the first of a type in `last`."""
    frames = []
    while True:
        message = await asyncio.wait_for(ws.receive(), 10)
        if message.type != aiohttp.WSMsgType.TEXT:
            raise AssertionError(f"the socket ended: {message.type}")
        frame = json.loads(message.data)
        if frame["type"] != "hello":
            frames.append(frame)
            if frame["type"] in last:
                return frames


class ChatTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.service = base.Service()

    @classmethod
    def tearDownClass(cls):
        cls.service.stop()

    def setUp(self):
        self.s = self.service
        self.fresh()

    def fresh(self, **agent):
        """Back to the seed with a quick agent; a reset also ends every session."""
        self.s.control("POST", "reset")
        self.s.control("POST", "agent", {"step_delay": 0, **agent})
        self.demo = self.s.login()

    # Helpers

    def chat(self, body, cookie=None, query=""):
        return self.s.json("POST", "/webapi/chat" + query, body, {**(cookie or self.demo), **JSON})

    def say(self, text="When is the next bus?", **fields):
        status, reply = self.chat({"text": text, **fields})
        self.assertEqual(status, 200, reply)
        return reply

    def feed(self, query="", cookie=None):
        status, feed = self.s.json("GET", "/webapi/messages" + query, None, cookie or self.demo)
        self.assertEqual(status, 200, feed)
        return feed

    def stored(self, conversation="main", user="demo"):
        return self.s.control("GET", f"messages?user={user}&conversation_id={conversation}")

    def run_record(self, run_id, cookie=None):
        return self.s.json("GET", "/webapi/runs/" + run_id, None, cookie or self.demo)

    def wait_done(self, run_id):
        deadline = time.monotonic() + 10
        while time.monotonic() < deadline:
            status, record = self.run_record(run_id)
            if status == 200 and record["done"]:
                return record
            time.sleep(0.02)
        self.fail(f"{run_id} did not finish")

    def upload(self, parts, query="", cookie=None):
        return self.s.json("POST", "/webapi/upload" + query, base.multipart(parts),
                           {**(cookie or self.demo), "Content-Type": FORM})

    def live(self, script, user="demo", password="demo-password", sockets=1):
        """Runs script(session, sockets) with chat sockets of the user already open."""
        cookie = self.s.login(user, password)

        async def run():
            async with aiohttp.ClientSession(headers={**cookie, **JSON}) as session:
                opened = [await session.ws_connect(self.s.base + "/webapi/ws", autoclose=False)
                          for _ in range(sockets)]
                for ws in opened:  # the greeting: the socket is registered from here on
                    self.assertEqual(json.loads(await ws.receive_str())["type"], "hello")
                try:
                    return await script(session, opened)
                finally:
                    for ws in opened:
                        await ws.close()

        return asyncio.run(run())

    async def post(self, session, body, path="/webapi/chat"):
        async with session.post(self.s.base + path, json=body) as response:
            return response.status, await response.json()

    # Tests

    def test_conversation_is_named_consistently(self):
        rows = [  # method, path, body, status, error or conversation
            ("GET", "/webapi/messages", None, 200, "main"),
            ("GET", "/webapi/messages?conversation_id=main", None, 200, "main"),
            ("GET", "/webapi/messages?conversation_id=project:7&project_id=7", None, 200,
             "project:7"),
            ("GET", "/webapi/messages?since=0&project_id=7", None, 200, "project:7"),
            ("GET", "/webapi/messages?conversation_id=main&project_id=7", None, 400,
             "bad_conversation"),
            ("GET", "/webapi/messages?conversation_id=project:7&project_id=8", None, 400,
             "bad_conversation"),
            ("GET", "/webapi/messages?project_id=7&project_id=8", None, 400, "bad_conversation"),
            ("GET", "/webapi/messages?conversation_id=project:x", None, 400, "bad_conversation"),
            ("GET", "/webapi/messages?conversation_id=project:0", None, 400, "bad_conversation"),
            ("GET", "/webapi/messages?project_id=7.0", None, 400, "bad_conversation"),
            ("GET", "/webapi/messages?since=-1", None, 400, "bad_request"),
            ("GET", "/webapi/messages?activity_since=x", None, 400, "bad_request"),
            ("GET", "/webapi/messages?tasks=1,x", None, 400, "bad_request"),
            ("POST", "/webapi/chat", {"text": "hi", "project_id": 3}, 200, "project:3"),
            ("POST", "/webapi/chat?conversation_id=project:3&project_id=3",
             {"text": "hi", "conversation_id": "project:3", "project_id": 3}, 200, "project:3"),
            ("POST", "/webapi/chat", {"text": "hi", "conversation_id": "project:3",
                                      "project_id": "3"}, 400, "bad_conversation"),
            ("POST", "/webapi/chat", {"text": "hi", "project_id": True}, 400, "bad_conversation"),
            ("POST", "/webapi/chat?conversation_id=project:3&project_id=3",
             {"text": "hi", "conversation_id": "project:4", "project_id": 4}, 400,
             "bad_conversation"),
            ("POST", "/webapi/chat?project_id=3", {"text": "hi"}, 200, "project:3"),
            ("GET", "/webapi/ws?conversation_id=oops", None, 400, "bad_conversation"),
        ]
        for method, path, body, expected, outcome in rows:
            with self.subTest(path=path, body=body):
                headers = {**self.demo, **JSON} if body is not None else self.demo
                status, reply = self.s.json(method, path, body, headers)
                self.assertEqual(status, expected, reply)
                if expected == 200:
                    self.assertEqual(reply["conversation_id"], outcome)
                else:
                    self.assertEqual(reply["error"], outcome)
        self.assertEqual(self.feed("?project_id=7")["project_id"], 7)
        self.assertNotIn("project_id", self.feed())

    def test_bad_chat_requests_store_nothing(self):
        rows = [  # body, content type, status, error
            ({"text": "hi"}, None, 415, "unsupported_media_type"),
            ("{", "application/json", 400, "bad_json"),
            ({}, "application/json", 400, "bad_request"),
            ({"text": 5}, "application/json", 400, "bad_request"),
            ({"text": " \n"}, "application/json", 400, "empty_text"),
            ({"text": "hi", "voice_reply": "yes"}, "application/json", 400, "bad_request"),
            ({"text": "hi", "from_voice": 1}, "application/json", 400, "bad_request"),
            ({"text": "hi", "client_request_id": 7}, "application/json", 400, "bad_request"),
            ({"text": "hi", "reply_to_id": 12}, "application/json", 400, "bad_request"),
            ({"text": "hi", "reply_to_id": "seq:1"}, "application/json", 400, "bad_request"),
            ({"text": "hi", "reply_to_id": "999"}, "application/json", 409,
             "reply_target_not_found"),
        ]
        for body, content_type, expected, error in rows:
            with self.subTest(body=body, content_type=content_type):
                headers = {**self.demo, **({"Content-Type": content_type} if content_type else {})}
                status, reply = self.s.json("POST", "/webapi/chat", body, headers)
                self.assertEqual((status, reply["error"]), (expected, error))
        self.assertEqual(self.s.json("POST", "/webapi/chat", {"text": "hi"}, JSON)[0], 401)
        self.assertEqual(self.stored()["messages"], [])
        self.assertEqual(self.stored()["runs"], {})

    def test_a_turn_gets_an_answer_and_its_lane(self):
        reply = self.say(client_request_id="turn-1")
        self.assertEqual(set(reply), {"ok", "user_seq", "run_id", "conversation_id"})
        self.assertRegex(reply["run_id"], r"^run_[0-9a-f]+$")
        record = self.wait_done(reply["run_id"])
        feed = self.feed("?since=0&activity_since=0&tasks=1,5")
        user, answer = feed["messages"]
        self.assertEqual((user["seq"], user["role"], user["kind"], user["client_request_id"],
                          user["run_id"], user["task_no"]),
                         (1, "user", "text", "turn-1", reply["run_id"], "1"))
        self.assertEqual((answer["seq"], answer["role"], answer["run_id"], answer["task_no"]),
                         (2, "assistant", reply["run_id"], "1"))
        self.assertGreaterEqual(answer["created_at"], user["created_at"])
        self.assertIn("| a | b |\n|---|---|\n", answer["text"])
        self.assertEqual((feed["cursor"], feed["has_more"]), (2, False))
        self.assertEqual(feed["task_states"], {"1": "done", "5": "unknown"})
        self.assertEqual(record, {
            "conversation_id": "main", "status": "done", "done": True, "text": answer["text"],
            "label": "Researcher", "attempt": 1, "error": None, "outcome": "completed",
            "voice_url": None, "created_at": answer["created_at"]})

        activity = feed["activity"]
        self.assertEqual([update["seq"] for update in activity],
                         list(range(1, len(activity) + 1)))
        self.assertEqual(feed["activity_cursor"], len(activity))
        self.assertTrue(all(u["id"] == reply["run_id"] and u["after"] == 1 for u in activity))
        tools = [u["tool"]["status"] for u in activity if "tool" in u]
        self.assertEqual(tools, ["started", "completed"])
        self.assertEqual([u["finished"] for u in activity], [False] * (len(activity) - 1) + [True])
        self.assertEqual(activity[-1]["outcome"], "completed")

    def test_voice_reply_names_a_file_that_downloads(self):
        reply = self.say(voice_reply=True, from_voice=True)
        record = self.wait_done(reply["run_id"])
        self.assertRegex(record["voice_url"], r"^webapi/files/reply-run_[0-9a-f]+\.m4a$")
        answer = self.stored()["messages"][-1]
        self.assertEqual(answer["voice_file"], record["voice_url"].rsplit("/", 1)[1])
        status, headers, data = self.s.call("GET", "/" + record["voice_url"], None, self.demo)
        self.assertEqual((status, base.header(headers, "Content-Type")), (200, "audio/mp4"))
        other = self.s.login("owner", "owner-password")
        self.assertEqual(self.s.call("GET", "/" + record["voice_url"], None, other)[0], 404)

    def test_a_turn_delivered_twice_is_stored_once(self):
        first = self.say(client_request_id="same")
        self.wait_done(first["run_id"])
        again = self.say("When is the next bus?", client_request_id="same")
        through_control = self.s.control("POST", "chat", {"user": "demo", "text": "x",
                                                          "client_request_id": "same"})
        other_conversation = self.say(client_request_id="same", project_id=2)
        self.assertEqual([again, through_control, other_conversation], [first] * 3)
        stored = self.stored()
        self.assertEqual(len(stored["messages"]), 2)  # the turn and its answer
        self.assertEqual(list(stored["runs"]), [first["run_id"]])
        self.assertEqual(self.stored("project:2")["messages"], [])
        # Request ids belong to one user.
        status, theirs = self.chat({"text": "hi", "client_request_id": "same"},
                                   self.s.login("owner", "owner-password"))
        self.assertEqual((status, theirs["user_seq"]), (200, 1))
        self.assertNotEqual(theirs["run_id"], first["run_id"])

    def test_replies_to_gone_targets_are_refused(self):
        done = self.say("first")  # task 1, answered
        self.wait_done(done["run_id"])
        stopped = self.say("second")  # task 2, stopped
        self.wait_done(stopped["run_id"])
        self.assertEqual(self.s.json("POST", "/webapi/tasks/p-2/stop", {}, {**self.demo, **JSON}),
                         (200, {"ok": True}))
        elsewhere = self.say("third", project_id=2)  # task 3, another conversation
        self.wait_done(elsewhere["run_id"])
        gone_task = {"error": "reply_target_not_found",
                     "detail": "The task you replied to is no longer available"}
        rows = [  # reply_to_id, status, reply or task_no of the new turn
            ("task:2", 409, gone_task),
            ("task:99", 409, gone_task),
            ("task:3", 409, gone_task),
            ("999", 409, None),
            ("task:1", 200, "1"),
            ("1", 200, "4"),
        ]
        for target, expected, outcome in rows:
            with self.subTest(target=target):
                before = len(self.stored()["messages"])
                status, reply = self.chat({"text": "and then?", "reply_to_id": target})
                self.assertEqual(status, expected, reply)
                messages = self.stored()["messages"]
                if expected == 409:
                    self.assertEqual(reply["error"], "reply_target_not_found")
                    if outcome:
                        self.assertEqual(reply, outcome)
                    self.assertEqual(len(messages), before)
                    continue
                turn = next(m for m in messages if m["seq"] == reply["user_seq"])
                self.assertEqual((turn["reply_to_id"], turn["task_no"]), (target, outcome))
                self.wait_done(reply["run_id"])
        quoted = next(m for m in self.stored()["messages"] if m.get("reply_to_id") == "1")
        self.assertEqual((quoted["reply_to_role"], quoted["reply_to_text"]), ("user", "first"))

    def test_feed_pages_and_repeats(self):
        self.s.control("POST", "feed", {"page_size": 2})
        for number in range(5):
            self.s.control("POST", "message", {"user": "demo", "role": "assistant",
                                               "text": f"note {number}", "notify": False})
        rows = [  # since, seqs, cursor, has_more
            (0, [1, 2], 2, True),
            (2, [3, 4], 4, True),
            (3, [4, 5], 5, False),
            (4, [5], 5, False),
            (5, [], 5, False),
            (9, [], 9, False),
        ]
        for since, seqs, cursor, more in rows:
            with self.subTest(since=since):
                feed = self.feed(f"?since={since}")
                self.assertEqual([m["seq"] for m in feed["messages"]], seqs)
                self.assertEqual((feed["cursor"], feed["has_more"]), (cursor, more))
        self.s.control("POST", "feed", {"duplicate": True})
        self.assertEqual([m["seq"] for m in self.feed("?since=4")["messages"]], [5, 5])
        self.assertEqual([m["seq"] for m in self.feed("?since=4")["messages"]], [5])

        self.wait_done(self.say()["run_id"])
        first = self.feed("?since=7&activity_since=0")
        rest = self.feed(f"?since=7&activity_since={first['activity_cursor']}")
        self.assertEqual((len(first["activity"]), first["activity_cursor"],
                          first["activity_has_more"]), (2, 2, True))
        self.assertEqual([u["seq"] for u in rest["activity"]], [3, 4])

    def test_frames_follow_the_script(self):
        rows = [  # agent settings, frame types after run_started
            ({"tools": 1}, ["delta"] * 3 + ["tool"] * 2 + ["final"]),
            ({"tools": 2}, ["delta"] * 3 + ["tool"] * 4 + ["final"]),
            ({"tools": 0, "mode": "error"}, ["delta"] * 3 + ["error"]),
        ]
        for settings, types in rows:
            with self.subTest(settings=settings):
                self.fresh(step_delay=0.01, **settings)

                async def script(session, sockets):
                    status, reply = await self.post(session, {
                        "text": "bus?", "client_request_id": "r1",
                        "conversation_id": "project:5", "project_id": 5})
                    self.assertEqual(status, 200)
                    return reply, [await collect(ws, ("final", "error")) for ws in sockets]

                reply, (frames, twin) = self.live(script, sockets=2)
                self.assertEqual(twin, frames)  # every socket of the user hears everything
                self.assertEqual([f["type"] for f in frames], ["run_started"] + types)
                self.assertEqual({(f["conversation_id"], f["run_id"]) for f in frames},
                                 {("project:5", reply["run_id"])})
                self.assertEqual((frames[0]["user_seq"], frames[0]["client_request_id"]),
                                 (reply["user_seq"], "r1"))
                texts = [f["text"] for f in frames if f["type"] == "delta"]
                self.assertTrue(all(b.startswith(a) and len(b) > len(a)
                                    for a, b in zip(texts, texts[1:])), texts)
                statuses = [f["status"] for f in frames if f["type"] == "tool"]
                self.assertEqual(statuses, ["started", "completed"] * settings["tools"])
                answer = self.stored("project:5")["messages"][-1]
                end = frames[-1]
                if end["type"] == "final":
                    self.assertEqual((end["outcome"], end["text"], end["created_at"]),
                                     ("completed", answer["text"], answer["created_at"]))
                else:
                    self.assertEqual(end["error"], answer["text"])
                    record = self.wait_done(reply["run_id"])
                    self.assertEqual((record["status"], record["error"], record["outcome"]),
                                     ("error", answer["text"], "error"))

    def test_frames_reach_only_their_user(self):
        async def script(session, sockets):
            demo_reply = self.say("mine")
            self.wait_done(demo_reply["run_id"])
            status, reply = await self.post(session, {"text": "theirs"})
            frames = await collect(sockets[0], ("final",))
            return reply, frames

        reply, frames = self.live(script, "owner", "owner-password")
        self.assertEqual({f["run_id"] for f in frames}, {reply["run_id"]})

    def test_silent_runs_wait_until_finished_or_stopped(self):
        self.s.control("POST", "agent", {"mode": "silent"})

        async def script(session, sockets):
            ws = sockets[0]
            _, first = await self.post(session, {"text": "one"})
            await collect(ws, ("tool",))
            await collect(ws, ("tool",))  # the last step before the reply
            running = self.run_record(first["run_id"])
            states = self.feed("?tasks=1")["task_states"]
            stop = await self.post(session, {}, "/webapi/tasks/p-1/stop")
            stopped = await collect(ws, ("final",))
            _, second = await self.post(session, {"text": "two"})
            _, superseding = await self.post(session, {"text": "more", "reply_to_id": "task:2"})
            superseded = await collect(ws, ("final",))
            await collect(ws, ("tool",))
            await collect(ws, ("tool",))
            finished = self.s.control("POST", "agent/finish", {"user": "demo"})
            final = await collect(ws, ("final",))
            return (first, running, states, stop, stopped, second, superseding, superseded,
                    finished, final)

        (first, running, states, stop, stopped, second, superseding, superseded, finished,
         final) = self.live(script)
        self.assertEqual(running[0], 200)
        self.assertEqual({k: running[1][k] for k in ("status", "done", "label", "outcome")},
                         {"status": "running", "done": False, "label": "Researcher",
                          "outcome": None})
        self.assertTrue(running[1]["text"])
        self.assertEqual(states, {"1": "running"})
        self.assertEqual(stop, (200, {"ok": True}))
        end = stopped[-1]
        self.assertEqual((end["run_id"], end["outcome"], end["text"]),
                         (first["run_id"], "stopped", ""))
        record = self.run_record(first["run_id"])[1]
        self.assertEqual((record["status"], record["done"], record["outcome"], record["text"]),
                         ("done", True, "stopped", ""))
        self.assertEqual(superseded[-1]["run_id"], second["run_id"])
        self.assertEqual(superseded[-1]["outcome"], "superseded")
        self.assertEqual(finished, {"ok": True, "finished": 1})
        self.assertEqual((final[-1]["run_id"], final[-1]["outcome"]),
                         (superseding["run_id"], "completed"))
        stored = self.stored()
        self.assertEqual([m["role"] for m in stored["messages"]],
                         ["user", "user", "user", "assistant"])
        self.assertEqual(stored["tasks"], {"1": "stopped", "2": "done"})

    def test_unknown_runs_and_tasks(self):
        reply = self.say()
        owner = self.s.login("owner", "owner-password")
        rows = [  # method, path, cookie, status, body
            ("GET", "/webapi/runs/run_nope", self.demo, 404, {"error": "run_not_found"}),
            ("GET", "/webapi/runs/" + reply["run_id"], owner, 404, {"error": "run_not_found"}),
            ("POST", "/webapi/tasks/p-9/stop", self.demo, 404, None),
            ("POST", "/webapi/tasks/p-1/stop", owner, 404, None),
            ("POST", "/webapi/tasks/p-x/stop", self.demo, 404, None),
            ("GET", "/webapi/tasks/p-1/stop", self.demo, 405, None),
            ("GET", "/webapi/runs/" + reply["run_id"], {}, 401, None),
        ]
        for method, path, cookie, expected, body in rows:
            with self.subTest(path=path, method=method):
                status, got = self.s.json(method, path, {} if method == "POST" else None,
                                          {**cookie, **JSON})
                self.assertEqual(status, expected, got)
                if body is not None:
                    self.assertEqual(got, body)
        self.assertEqual(self.wait_done(reply["run_id"])["outcome"], "completed")

    def test_lost_reply_keeps_the_message(self):
        self.s.control("POST", "fault", {"match": "webapi/chat", "after": "drop"})
        with self.assertRaises(ConnectionError):
            self.chat({"text": "lost", "client_request_id": "L1"})
        stored = self.stored()["messages"]
        self.assertEqual([(m["role"], m["client_request_id"]) for m in stored[:1]],
                         [("user", "L1")])
        again = self.say("lost", client_request_id="L1")
        self.assertEqual(again["user_seq"], stored[0]["seq"])
        self.wait_done(again["run_id"])
        self.assertEqual(len([m for m in self.stored()["messages"] if m["role"] == "user"]), 1)

        self.s.control("POST", "fault", {"match": "webapi/upload", "after": "drop"})
        parts = [form_field("client_request_id", "U1"), file_part()]
        with self.assertRaises(ConnectionError):
            self.upload(parts)
        first_try = self.upload(parts)[1]
        self.assertEqual(self.upload(parts)[1], first_try)
        statuses = [(r["path"], r["status"]) for r in self.s.control("GET", "log")["requests"]
                    if r["path"] in ("webapi/chat", "webapi/upload")]
        self.assertEqual(statuses, [("webapi/chat", 0), ("webapi/chat", 200),
                                    ("webapi/upload", 0), ("webapi/upload", 200),
                                    ("webapi/upload", 200)])

    def test_a_body_cut_short_stores_nothing(self):
        big = "x" * 200_000
        rows = [  # path, body, headers
            ("/webapi/chat", json.dumps({"text": big, "client_request_id": "C1"}), JSON),
            ("/webapi/upload", base.multipart([form_field("client_request_id", "U1"),
                                               file_part(data=big.encode())]),
             {"Content-Type": FORM}),
        ]
        for path, body, headers in rows:
            with self.subTest(path=path):
                self.s.control("DELETE", "log")
                self.s.control("POST", "fault", {"match": path[1:], "drop_mid_body": True})
                with self.assertRaises(ConnectionError):
                    self.s.call("POST", path, body, {**self.demo, **headers})
                entry, = self.s.control("GET", "log")["requests"]
                self.assertEqual(entry["status"], 0)
                self.assertLess(len(entry["body"]), len(body))
                self.assertEqual(self.stored()["messages"], [])
        # Nothing was remembered under the request ids either.
        reply = self.say("fresh", client_request_id="C1")
        self.assertEqual(reply["user_seq"], 1)
        status, uploaded = self.upload([form_field("client_request_id", "U1"), file_part()])
        self.assertEqual((status, uploaded["size"]), (200, len(b"%PDF-1.4 plan")))

    def test_uploads_become_attachments(self):
        query = "?conversation_id=project:2&project_id=2"
        status, pdf = self.upload([form_field("project_id", "2"), file_part()], query)
        self.assertEqual(status, 200, pdf)
        self.assertEqual(pdf["name"], "plan.pdf")
        other = self.upload([file_part()])[1]  # same name, main conversation
        self.assertNotEqual(other["file_id"], pdf["file_id"])
        rows = [  # form fields, query, status
            ([form_field("conversation_id", "project:3")], query, 400),
            ([form_field("project_id", "two")], "", 400),
            ([form_field("conversation_id", "main"), form_field("project_id", "2")], "", 400),
        ]
        for fields, given_query, expected in rows:
            with self.subTest(fields=fields, query=given_query):
                status, reply = self.upload(fields + [file_part()], given_query)
                self.assertEqual((status, reply["error"]), (expected, "bad_conversation"))

        text = "Here is the plan\n[attachment: plan.pdf]\n[attachment: missing.txt]"
        reply = self.say(text, conversation_id="project:2", project_id=2)
        turn = self.stored("project:2")["messages"][0]
        self.assertEqual(turn["seq"], reply["user_seq"])
        self.assertEqual(turn["text"], text)
        self.assertEqual(turn["attachments"], [{"file_id": pdf["file_id"], "name": "plan.pdf",
                                                "mime": "application/pdf",
                                                "size": len(b"%PDF-1.4 plan")}])

    def test_socket_faults(self):
        async def dropped(session, sockets):
            closed = self.s.control("POST", "socket", {"user": "demo", "action": "drop"})
            message = await asyncio.wait_for(sockets[0].receive(), 5)
            return closed, message.type

        closed, kind = self.live(dropped)
        self.assertEqual(closed, {"ok": True, "closed": 1})
        self.assertIn(kind, (aiohttp.WSMsgType.CLOSED, aiohttp.WSMsgType.CLOSE,
                             aiohttp.WSMsgType.ERROR))

        rows = [  # rule, frame types of two runs
            ({"drop_frames": ["delta", "final"], "times": -1},
             ["run_started", "tool", "tool"] * 2),
            ({"drop_frames": ["delta"], "times": 2},
             ["run_started", "delta", "tool", "tool", "final"]
             + ["run_started", "delta", "delta", "delta", "tool", "tool", "final"]),
            ({"duplicate_frames": ["final"]},
             ["run_started", "delta", "delta", "delta", "tool", "tool", "final", "final"]
             + ["run_started", "delta", "delta", "delta", "tool", "tool", "final"]),
        ]
        for rule, types in rows:
            with self.subTest(rule=rule):
                self.fresh()
                self.s.control("POST", "socket", {"user": "demo", **rule})

                async def two_runs(session, sockets):
                    for text in ("one", "two"):  # one after the other: no interleaved frames
                        _, reply = await self.post(session, {"text": text})
                        self.wait_done(reply["run_id"])
                    # A frame after both runs marks the end of what the socket will get.
                    self.s.control("POST", "message", {"user": "demo", "role": "user",
                                                       "text": "end", "source": "telegram"})
                    return await collect(sockets[0], ("tg_message",))

                frames = self.live(two_runs)
                self.assertEqual([f["type"] for f in frames], types + ["tg_message"])
                self.assertEqual(frames[-1], {"type": "tg_message", "conversation_id": "main"})
                # Polling still finds every answer.
                answers = [m for m in self.feed()["messages"] if m["role"] == "assistant"]
                self.assertEqual(len(answers), 2)

    def test_messenger_messages(self):
        self.s.control("POST", "message", {
            "user": "demo", "role": "user", "text": "from the phone", "source": "telegram",
            "tg_message_id": 12, "created_at": 1000.5, "conversation_id": "project:1"})
        message, = self.feed("?project_id=1")["messages"]
        self.assertEqual(message, {"seq": 1, "role": "user", "kind": "text",
                                   "text": "from the phone", "source": "telegram",
                                   "tg_message_id": "12", "created_at": 1000.5})

    def test_route_votes(self):
        self.s.control("POST", "message", {"user": "demo", "role": "assistant", "kind": "route",
                                           "text": "Send this to the researcher?"})
        rows = [  # body, status
            ({"vote": "up", "seq": 1}, 200),
            ({"vote": "down", "want": "opus", "level": "high", "note": "too slow", "seq": 1}, 200),
            ({"vote": "up", "seq": "1"}, 400),
            ({"vote": "up", "seq": True}, 400),
            ({"vote": 1, "seq": 1}, 400),
            ({"vote": "", "seq": 1}, 400),
            ({"vote": "up", "level": 3, "seq": 1}, 400),
            ({"vote": "up"}, 400),
            ({"vote": "up", "seq": 2}, 404),
            ({"vote": "up", "seq": 1, "project_id": 4}, 404),
        ]
        for body, expected in rows:
            with self.subTest(body=body):
                status, reply = self.s.json("POST", "/webapi/router/feedback", body,
                                            {**self.demo, **JSON})
                self.assertEqual(status, expected, reply)
        self.assertEqual(self.stored()["messages"][0]["route_vote"], "down")
        recorded = self.s.control("GET", "feedback?user=demo")["feedback"]
        self.assertEqual(recorded[-1], {"conversation_id": "main", "seq": 1, "vote": "down",
                                        "want": "opus", "level": "high", "note": "too slow"})
        self.assertEqual(len(recorded), 2)

    def test_reset_ends_runs_under_way(self):
        # A run that outlived the reset would send a delta at 0.5 s, before the next run's
        # reply at about 0.8 s.
        self.s.control("POST", "agent", {"step_delay": 0.25})

        async def script(session, sockets):
            _, before = await self.post(session, {"text": "before"})
            posted = time.monotonic()
            self.fresh(step_delay=0.1)
            late_reset = time.monotonic() - posted > 0.4
            after = self.say("after")
            return before, after, await collect(sockets[0], ("final",)), late_reset

        before, after, frames, late_reset = self.live(script)
        if late_reset:
            self.skipTest("the machine is too busy: the reset came after the first step")
        # The first step of the earlier run may have gone out before the reset; no more.
        late = [f["type"] for f in frames if f["run_id"] == before["run_id"]]
        self.assertIn(late, ([], ["run_started"]))
        self.assertEqual(frames[-1]["run_id"], after["run_id"])
        self.assertEqual(self.run_record(before["run_id"])[0], 404)
        self.assertEqual([m["text"] for m in self.stored()["messages"]][:1], ["after"])

    def test_control_mistakes(self):
        rows = [  # action, body, status
            ("agent", {"mode": "loud"}, 400),
            ("agent", {"step_delay": -1}, 400),
            ("agent", {"tools": True}, 400),
            ("agent/finish", {"user": "demo", "run_id": "run_x"}, 404),
            ("agent/finish", {"user": "nobody"}, 404),
            ("socket", {"user": "demo", "action": "wave"}, 400),
            ("socket", {"drop_frames": []}, 400),
            ("socket", {"drop_frames": ["delta"], "times": 0}, 400),
            ("socket", {}, 400),
            ("feed", {"page_size": 0}, 400),
            ("message", {"user": "demo", "role": "system", "text": "x"}, 400),
            ("message", {"user": "demo", "role": "user", "text": "x", "conversation_id": "p"},
             400),
            ("chat", {"user": "demo"}, 400),
            ("fault", {"match": "webapi/chat", "after": "later"}, 400),
            ("fault", {"match": "webapi/chat", "after": "drop", "status": 500}, 400),
        ]
        for action, body, expected in rows:
            with self.subTest(action=action, body=body):
                status, _ = self.s.json("POST", "/_control/" + action, body)
                self.assertEqual(status, expected)
        self.assertEqual(self.s.control("POST", "agent", {"reply": "ok"})["mode"], "normal")


if __name__ == "__main__":
    unittest.main()
