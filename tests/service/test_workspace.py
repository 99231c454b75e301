"""The workspace actions: each changes only the acting user's page, and bad input is refused."""

import unittest

from test_service import JSON, Service


class WorkspaceTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.service = Service()

    @classmethod
    def tearDownClass(cls):
        cls.service.stop()

    def setUp(self):
        self.s = self.service
        self.s.control("POST", "reset")
        self.demo = {**self.s.login(), **JSON}

    def page(self, path, who=None):
        status, value = self.s.json("GET", "/webapi/" + path, headers=who or self.demo)
        self.assertEqual(status, 200)
        return value

    def post(self, path, body=None):
        return self.s.json("POST", "/webapi/" + path, body if body is not None else {}, self.demo)

    def test_actions_change_the_page(self):
        cases = [
            ("tasks/add", {"title": " Water the basil "}, "tasks",
             lambda v: v[-1]["title"] == "Water the basil" and v[-1]["status"] == "open"),
            ("tasks/t1/done", None, "tasks", lambda v: v[0]["status"] == "done"),
            ("projects/add", {"name": "Boat"}, "projects",
             lambda v: v[-1]["name"] == "Boat" and v[-1]["id"] == "4"),
            ("automations/a2/toggle", None, "automations",
             lambda v: v["automations"][1]["status"] == "enabled"),
            ("automations/a2/run", None, "automations",
             lambda v: v["automations"][1]["last_run_at"] is not None),
        ]
        for path, body, page, holds in cases:
            with self.subTest(path):
                status, _ = self.post(path, body)
                self.assertEqual(status, 200)
                self.assertTrue(holds(self.page(page)))
        # Another user still sees the seed.
        guest = {**self.s.login("tt_7f3a9c", "guest-password"), **JSON}
        self.assertEqual(self.page("tasks", guest)[0]["status"], "open")

    def test_refusals(self):
        cases = [
            ("tasks/add", {"title": "  "}, 400),
            ("tasks/add", {"title": 5}, 400),
            ("tasks/add", {}, 400),
            ("projects/add", {"name": "x" * 201}, 400),
            ("tasks/t99/done", None, 404),
            ("automations/zz/run", None, 404),
        ]
        for path, body, expected in cases:
            with self.subTest(path=path, body=body):
                status, _ = self.post(path, body)
                self.assertEqual(status, expected)
        self.assertEqual(len(self.page("tasks")), 3)


if __name__ == "__main__":
    unittest.main()
