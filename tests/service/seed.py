"""What the service holds right after start-up and after /_control/reset."""

USERS = [
    # name, password, role, email, pages, voice_live, workspace id, workspace name
    ("demo", "demo-password", "user", "demo@example.com",
     ["projects", "automations", "chat", "tasks"], True, "ws-demo", "Demo workspace"),
    ("owner", "owner-password", "owner", "owner@example.com",
     [], False, "ws-owner", "Owner workspace"),
    ("tt_7f3a9c", "guest-password", "user", "guest@example.com",
     ["chat"], True, "ws-guest", "Guest workspace"),
]

JSON_PAGES = {
    "webapi/projects": [
        {"id": "1", "name": "Garden planner", "status": "active",
         "updated_at": "2025-03-02T09:15:00Z"},
        {"id": "2", "name": "Tax papers 2024", "status": "paused",
         "updated_at": "2025-02-11T17:40:00Z"},
        {"id": "3", "name": "Trip to Haifa", "status": "archived",
         "updated_at": "2024-12-20T08:05:00Z"},
    ],
    "webapi/automations": {
        "automations": [
            {"id": "a1", "name": "Morning brief", "schedule": "0 7 * * *", "status": "enabled",
             "last_run_at": "2025-03-03T07:00:04Z"},
            {"id": "a2", "name": "Invoice reminder", "schedule": "0 9 1 * *",
             "status": "disabled", "last_run_at": None},
        ]
    },
    "webapi/claude-accounts": {
        "accounts": [{"id": "c1", "label": "Personal", "status": "linked",
                      "email": "demo@example.com"}]
    },
    "webapi/codex-accounts": {"accounts": []},
    "webapi/tasks": [
        {"id": "t1", "title": "Order tomato seedlings", "status": "open", "project_id": "1"},
        {"id": "t2", "title": "Collect 2024 receipts", "status": "running", "project_id": "2"},
        {"id": "t3", "title": "Book the hotel", "status": "done", "project_id": "3"},
    ],
}

NOTES_MD = """# Garden planner

- Tomatoes: *three* rows, east side
- Basil between them
- Water at 06:00 — twice a week

שתילים: עגבניות, בזיליקום
"""

# path -> (bytes, content type)
RAW_PAGES = {
    "webapi/projects/1/files/notes.md": (NOTES_MD.encode("utf-8"), "text/markdown"),
    "webapi/files/report.txt": (b"Quarterly report\nAll numbers are made up.\n",
                                "text/plain; charset=utf-8"),
    # A Hebrew name with a space: the download name must survive percent-encoding.
    "webapi/files/דוח שבועי.txt": ("דוח שבועי\n".encode("utf-8"), "text/plain; charset=utf-8"),
    "webapi/files/blob.bin": (bytes(range(256)), "application/octet-stream"),
}
