"""The health and vault endpoints refuse what the hosted service refuses."""

import unittest

from test_service import JSON, Service

UUID = "3F0C7A52-8D5E-4B7E-9B2A-6C1F2D9E4A10"
ROW = {"uuid": UUID, "activity": "running", "start": 1.0, "end": 2.0, "duration_s": 1.0,
       "kcal": None, "distance_m": 0, "avg_hr": None, "max_hr": None, "source": "w"}
PAGE = {"device": "d", "workouts": [ROW], "deleted": [], "days": [{"day": "2026-01-02",
                                                                   "steps": 3}]}


class FeaturesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.s = Service()

    @classmethod
    def tearDownClass(cls):
        cls.s.stop()

    def setUp(self):
        self.s.control("POST", "reset")
        self.headers = {**self.s.login(), **JSON}

    def post(self, path, body):
        return self.s.json("POST", path, body, self.headers)

    def test_health_sync_is_strict(self):
        cases = [
            ("accepted", PAGE, 200),
            ("unknown top key", {**PAGE, "extra": 1}, 400),
            ("missing days", {k: v for k, v in PAGE.items() if k != "days"}, 400),
            ("lower-case uuid", {**PAGE, "workouts": [{**ROW, "uuid": UUID.lower()}]}, 400),
            ("kcal as text", {**PAGE, "workouts": [{**ROW, "kcal": "5"}]}, 400),
            ("distance null", {**PAGE, "workouts": [{**ROW, "distance_m": None}]}, 400),
            ("row without source", {**PAGE, "workouts": [{k: v for k, v in ROW.items()
                                                          if k != "source"}]}, 400),
            ("day with unknown metric", {**PAGE, "days": [{"day": "2026-01-02", "kms": 1}]}, 400),
            ("501 changes", {**PAGE, "workouts": [], "deleted": [UUID] * 501}, 413),
            ("500 changes", {**PAGE, "workouts": [], "deleted": [UUID] * 500}, 200),
        ]
        for name, body, status in cases:
            with self.subTest(name):
                self.assertEqual(self.post("/webapi/health/sync", body)[0], status)

    def test_health_keeps_workouts_until_forgotten(self):
        self.post("/webapi/health/sync", PAGE)
        self.assertEqual(self.post("/webapi/health/disconnect", {"forget": 1})[0], 400)
        self.post("/webapi/health/disconnect", {"forget": False})
        _, body = self.s.json("GET", "/webapi/health", headers=self.headers)
        self.assertEqual((body["health"]["connected"], body["health"]["total_workouts"]), (False, 1))
        self.post("/webapi/health/disconnect", {"forget": True})
        _, body = self.s.json("GET", "/webapi/health", headers=self.headers)
        self.assertEqual(body["health"]["total_workouts"], 0)

    def test_vault_save_is_strict(self):
        cases = [
            ("accepted", {"kind": "login", "primary": False, "title": "t", "password": "p"}, 200),
            ("unknown kind", {"kind": "pin", "primary": False, "title": "t"}, 400),
            ("primary as text", {"kind": "login", "primary": "yes", "title": "t"}, 400),
            ("no primary", {"kind": "login", "title": "t"}, 400),
            ("no title", {"kind": "login", "primary": False, "password": "p"}, 400),
            ("number value", {"kind": "card", "primary": False, "title": "t", "number": 4111}, 400),
        ]
        for name, body, status in cases:
            with self.subTest(name):
                self.assertEqual(self.post("/webapi/vault", body)[0], status)

    def test_vault_list_has_no_values(self):
        _, saved = self.post("/webapi/vault", {"kind": "card", "primary": True, "title": "Visa",
                                               "number": "4111111111111111", "cvv": "123"})
        item = saved["item"]
        self.assertEqual((item["last4"], item["has"]), ("1111", ["number", "cvv"]))
        status, listed = self.s.json("GET", "/webapi/vault", headers=self.headers)
        self.assertNotIn("4111111111111111", str(listed))
        _, revealed = self.post(f"/webapi/vault/{item['id']}/reveal", {})
        self.assertEqual(revealed["value"], "4111111111111111")
        self.assertEqual(self.post(f"/webapi/vault/{item['id']}", {"kind": "login",
                                                                   "primary": False})[0], 400)
        status, _ = self.s.json("DELETE", f"/webapi/vault/{item['id']}", headers=self.headers)
        self.assertEqual(status, 200)
        self.assertEqual(self.post(f"/webapi/vault/{item['id']}/reveal", {})[0], 404)


if __name__ == "__main__":
    unittest.main()
