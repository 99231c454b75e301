"""Self-test of the crash-report and push endpoints: what they refuse."""

import unittest

from test_service import JSON, Service

CRASH = {"kind": "crash", "reason": "signal 11", "trace": "signal 11\n", "build": "b"}
METRIC = {"kind": "metrickit", "reason": "r", "build": "b", "truncated": False, "payload": {},
          "raw": ""}
DEVICE = {"token": "00ff10abcdef0123", "env": "production", "device_name": "d", "app_build": "1"}


class PushReportTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.service = Service()

    @classmethod
    def tearDownClass(cls):
        cls.service.stop()

    def setUp(self):
        self.service.control("POST", "reset")
        self.headers = {**self.service.login(), **JSON}

    def post(self, path, body):
        return self.service.json("POST", path, body, self.headers)[0]

    def test_client_report_is_strict(self):
        rows = [
            (CRASH, 200),
            ({**CRASH, "kind": "hang", "foreground": True, "worst_stall_s": 4.5}, 200),
            (METRIC, 200),
            ({**CRASH, "kind": "oops"}, 400),
            ({**CRASH, "extra": 1}, 400),
            ({k: v for k, v in CRASH.items() if k != "trace"}, 400),
            ({**CRASH, "foreground": 1}, 400),
            ({**CRASH, "worst_stall_s": True}, 400),
            ({**METRIC, "payload": "{}"}, 400),
            ({**METRIC, "raw": "x" * 400_001}, 413),
        ]
        for body, expected in rows:
            with self.subTest(body=str(body)[:80]):
                self.assertEqual(self.post("/webapi/client-report", body), expected)

    def test_register_then_test(self):
        self.assertEqual(self.post("/webapi/push/test", {}), 409)
        for body, expected in [({**DEVICE, "token": "NOT-HEX"}, 400),
                               ({**DEVICE, "env": "staging"}, 400),
                               ({**DEVICE, "extra": ""}, 400), (DEVICE, 200)]:
            with self.subTest(body=body):
                self.assertEqual(self.post("/webapi/push/register", body), expected)
        status, value = self.service.json("GET", "/webapi/push/status", None, self.headers)
        self.assertEqual((status, len(value["devices"])), (200, 1))
        self.assertEqual(value["devices"][0]["token_tail"], "abcdef0123"[-8:])
        self.assertEqual(self.post("/webapi/push/test", {}), 200)


if __name__ == "__main__":
    unittest.main()
