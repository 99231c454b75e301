#!/usr/bin/python3
"""The interactive chat driven the way a person drives it: a real halvenmark-cli child on a
pseudo-terminal (and on pipes), against the reference service.

Usage: chatterminal.py HALVENMARK_CLI SERVICE_SCRIPT
"""

import fcntl
import json
import os
import pty
import select
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest
import urllib.request

CLI = None
SERVICE = None


class Service:
    def __init__(self):
        self.process = subprocess.Popen(
            ["/usr/bin/python3", SERVICE, "--exit-on-stdin-eof"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        line = self.process.stdout.readline().decode()
        if not line.startswith("LISTENING "):
            raise RuntimeError("the reference service did not start")
        self.base = line.split()[1].strip()

    def control(self, method, path, body=None):
        data = json.dumps(body).encode() if body is not None else None
        request = urllib.request.Request(self.base + "/_control/" + path, data=data, method=method)
        with urllib.request.urlopen(request, timeout=10) as reply:
            return json.loads(reply.read() or b"{}")

    def messages(self):
        return self.control("GET", "messages?user=demo&conversation_id=main")["messages"]

    def user_texts(self):
        return [m["text"] for m in self.messages() if m["role"] == "user"]

    def stop(self):
        self.process.stdin.close()
        self.process.wait(10)


def wait_for(condition, seconds=20, what="condition"):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if condition():
            return
        time.sleep(0.05)
    raise AssertionError("timed out waiting for " + what)


class Terminal:
    """A child process on a pseudo-terminal; the test keeps the terminal side open to look
    at its settings after the child has gone."""

    def __init__(self, env, args=("chat",), rows=30, columns=100):
        self.master, self.slave = pty.openpty()
        fcntl.ioctl(self.slave, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
        self.before = termios.tcgetattr(self.slave)
        self.process = subprocess.Popen(
            [CLI, *args], stdin=self.slave, stdout=self.slave, stderr=self.slave,
            env=env, start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        self.output = b""

    def pump(self, seconds=0.05):
        end = time.monotonic() + seconds
        while True:
            left = end - time.monotonic()
            if left <= 0:
                return
            ready, _, _ = select.select([self.master], [], [], left)
            if ready:
                try:
                    chunk = os.read(self.master, 65536)
                except OSError:
                    return
                self.output += chunk

    def expect(self, text, seconds=20):
        needle = text.encode() if isinstance(text, str) else text
        deadline = time.monotonic() + seconds
        while needle not in self.output:
            if time.monotonic() > deadline:
                raise AssertionError("no %r on the screen; got %r" % (needle, self.output[-2000:]))
            self.pump(0.05)

    def type(self, data, pause=0.0):
        raw = data.encode() if isinstance(data, str) else data
        if pause:
            for i in range(len(raw)):
                os.write(self.master, raw[i:i + 1])
                self.pump(pause)
        else:
            view = memoryview(raw)
            while view:
                written = os.write(self.master, view[:4096])
                view = view[written:]
                self.pump(0.01)

    def finish(self, seconds=20):
        deadline = time.monotonic() + seconds
        while self.process.poll() is None and time.monotonic() < deadline:
            self.pump(0.05)
        if self.process.poll() is None:
            self.process.kill()
            raise AssertionError("the chat did not end")
        self.pump(0.1)
        return self.process.returncode

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        os.close(self.master)
        os.close(self.slave)


class ChatTerminalTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.service = Service()

    @classmethod
    def tearDownClass(cls):
        cls.service.stop()

    def setUp(self):
        self.service.control("POST", "reset")
        self.home = tempfile.mkdtemp(prefix="halvenmark-chat-")
        self.env = dict(os.environ, HALVENMARK_HOME=self.home, HALVENMARK_SECRETS="file",
                        HALVENMARK_SERVER=self.service.base, LANG="C.UTF-8", LC_ALL="C.UTF-8",
                        TERM="xterm-256color", QT_QPA_PLATFORM="offscreen")
        self.env.pop("NO_COLOR", None)
        login = self.cli("--lang", "en", "login", "--user", "demo", input=b"demo-password\n")
        self.assertEqual(login.returncode, 0, login.stderr)
        self.cli("lang", "set", "en")

    def tearDown(self):
        shutil.rmtree(self.home, ignore_errors=True)

    def cli(self, *args, input=b""):
        return subprocess.run([CLI, *args], input=input, env=self.env, capture_output=True, timeout=60)

    def terminal(self):
        term = Terminal(self.env)
        self.addCleanup(term.close)
        term.expect("/quit")  # the banner says how to leave
        term.expect("connected")
        return term

    def test_typing_while_a_reply_streams_keeps_the_text(self):
        self.service.control("POST", "agent", {"step_delay": 0.4})
        term = self.terminal()
        term.type("first question\r")
        term.expect("Researcher")  # the live lane is on screen
        typed = "second question, typed while the agent works"
        term.type(typed, pause=0.06)
        wait_for(lambda: len(self.service.messages()) >= 2, what="the reply")
        term.pump(0.5)
        # The line still holds every key; only then is it sent.
        self.assertEqual(self.service.user_texts(), ["first question"])
        term.type("\r")
        wait_for(lambda: self.service.user_texts() == ["first question", typed], what="the second turn")
        term.type("/quit\r")
        self.assertEqual(term.finish(), 0)

    def test_turns_from_elsewhere_are_shown_and_lanes_drawn_once(self):
        self.service.control("POST", "agent", {"step_delay": 0.2})
        term = self.terminal()
        self.service.control("POST", "message", {"user": "demo", "conversation_id": "main", "role": "user",
                                                 "text": "sent from the bridge", "source": "telegram"})
        term.expect("You (Telegram)")
        term.expect("sent from the bridge")
        self.service.control("POST", "chat", {"user": "demo", "conversation_id": "main",
                                              "text": "sent from the phone"})
        term.expect("sent from the phone")
        term.expect("Agent")
        term.expect("1 step")  # the lane's one line in the transcript once it ended
        term.pump(0.5)
        # The lane was redrawn in place at the bottom, its end written to the transcript once.
        self.assertEqual(term.output.count("✓ Researcher".encode()), 1)
        term.type("/quit\r")
        self.assertEqual(term.finish(), 0)

    def test_a_long_bracketed_paste_arrives_whole(self):
        term = self.terminal()
        lines = ["%04d " % i + "abcdefghij" * 9 + "xxxxx" for i in range(100)]
        text = "\r".join(lines)  # a terminal sends a pasted line break as CR
        self.assertGreaterEqual(len(text), 10000)
        term.type("\x1b[200~" + text + "\x1b[201~")
        term.pump(0.3)
        term.type("\r")
        wait_for(lambda: self.service.user_texts() == ["\n".join(lines)], what="the pasted turn")
        term.type("\x04")  # Ctrl-D on the empty line
        self.assertEqual(term.finish(), 0)

    def test_ctrl_c_gives_the_terminal_back(self):
        term = self.terminal()
        term.type("half a thought")
        term.pump(0.2)
        self.assertFalse(termios.tcgetattr(term.slave)[3] & termios.ECHO)  # raw while chatting
        term.type("\x03")
        self.assertEqual(term.finish(), 0)
        after = termios.tcgetattr(term.slave)
        self.assertTrue(after[3] & termios.ECHO)
        self.assertTrue(after[3] & termios.ICANON)
        self.assertEqual(after, term.before)
        self.assertIn(b"\x1b[r", term.output)  # the scroll region is the whole screen again
        self.assertIn(b"\x1b[?2004l", term.output)
        # What was typed and not sent waits as the draft of the next chat.
        again = self.terminal()
        again.expect("half a thought")
        again.type("\x03")
        again.finish()

    def test_piped_lines_wait_for_acceptance(self):
        self.service.control("POST", "fault", {"match": "webapi/chat", "delay": 1.0, "status": None})
        done = self.cli("chat", input=b"one\ntwo\n")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(self.service.user_texts(), ["one", "two"])
        self.assertNotIn(b"\x1b", done.stdout + done.stderr)

    def test_piped_lines_the_server_cannot_take_are_reported(self):
        cases = [
            ({"match": "webapi/chat", "status": 503, "times": -1}, 4, "outbox"),
            ({"match": "webapi/chat", "status": 400, "times": -1,
              "body": {"error": "bad_request", "detail": "Not like this"}}, 1, "Not like this"),
        ]
        for fault, status, said in cases:
            with self.subTest(status=status):
                self.service.control("DELETE", "faults")
                self.service.control("POST", "fault", fault)
                done = self.cli("chat", input=b"kept turn\n")
                self.assertEqual(done.returncode, status, done.stderr)
                self.assertIn(said, done.stderr.decode())
                self.assertNotIn(b"\x1b", done.stdout + done.stderr)
                outbox = self.cli("chat", "outbox", "--json")
                self.assertIn("kept turn", [t["text"] for t in json.loads(outbox.stdout)])
                self.service.control("DELETE", "faults")
                self.cli("chat", "drain")


if __name__ == "__main__":
    CLI, SERVICE = sys.argv[1], sys.argv[2]
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=1)
