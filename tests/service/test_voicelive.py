"""The call socket's scripted agent and its strictness."""

import asyncio
import base64
import json
import unittest

import aiohttp

from test_service import JSON, Service

WS = "/webapi/voice-live/ws?provider=openai&app_language=en"


class VoiceLiveTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.s = Service()

    @classmethod
    def tearDownClass(cls):
        cls.s.stop()

    def setUp(self):
        self.s.control("POST", "reset")
        self.cookie = self.s.login("tt_7f3a9c", "guest-password")

    async def _call(self, frames, until):
        """Sends frames (dicts, or bytes of audio), then reads until a frame of type `until`."""
        got = []
        async with aiohttp.ClientSession() as session:
            async with session.ws_connect(self.s.base + WS, headers=self.cookie) as ws:
                for frame in frames:
                    if isinstance(frame, bytes):
                        frame = {"type": "audio", "data": base64.b64encode(frame).decode()}
                    await ws.send_str(json.dumps(frame))
                async for message in ws:
                    got.append(json.loads(message.data))
                    if got[-1]["type"] == until:
                        break
        return got

    def test_a_spoken_turn_is_answered_with_speech(self):
        status, _, wav = self.s.call("GET", "/_control/voice-live/speech?rate=24000")
        self.assertEqual(status, 200)
        pcm = wav[44:]
        chunks = [pcm[i:i + 960] for i in range(0, len(pcm) - len(pcm) % 2, 960)]
        silence = [bytes(960)] * 40
        got = asyncio.run(self._call([{"type": "hello", "resume": ""}, *chunks, *silence],
                                     "turn_complete"))
        types = [f["type"] for f in got]
        self.assertEqual(types[:2], ["ready", "resume_handle"])
        for kind in ("input_activity", "user_text", "turn_started", "bot_text", "audio",
                     "fast_response_finished", "agent_call"):
            self.assertIn(kind, types)
        audio = sum(len(base64.b64decode(f["data"])) for f in got if f["type"] == "audio")
        self.assertGreater(audio, 48000)  # more than a second of speech
        journal = self.s.json("GET", "/webapi/voice-live/journal", None, self.cookie)[1]
        self.assertEqual([m["role"] for m in journal["messages"]], ["user", "assistant"])

    def test_refused_frames_end_the_call(self):
        cases = [
            ([b"\0\0"], "not_ready"),
            ([{"type": "hello"}], "bad_frame"),
            ([{"type": "hello", "resume": "rh-made-up"}], "bad_resume"),
            ([{"type": "hello", "resume": ""}, {"type": "audio", "data": "AAA"}], "bad_audio"),
            ([{"type": "hello", "resume": "", "project_id": 3}], "bad_conversation"),
            ([{"type": "hello", "resume": ""},
              {"type": "playback_stats", "underruns": 0, "cushion_ms": "360"}], "bad_frame"),
        ]
        for frames, code in cases:
            with self.subTest(code=code):
                got = asyncio.run(self._call(frames, "error"))
                self.assertEqual((got[-1]["error"], got[-1]["fatal"]), (code, True))

    def test_preferences_are_checked(self):
        post = {**self.cookie, **JSON}
        status, body = self.s.json("POST", "/webapi/voice-live/preferences", {"voice": "Kore"}, post)
        self.assertEqual((status, body["preferences"]["voice"]), (200, "Kore"))
        status, _ = self.s.json("POST", "/webapi/voice-live/preferences", {"voice": "Nobody"}, post)
        self.assertEqual(status, 400)


if __name__ == "__main__":
    unittest.main()
