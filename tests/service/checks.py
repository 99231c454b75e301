"""Type checks of JSON body fields, shared by the web API and the control interface."""

from wire import Reject


def take(body: dict, key: str, kinds, default=None, required=False, error="bad_request"):
    """body[key] when it has one of `kinds`; absent or null gives `default` (or a 400 when
    `required`); any other type is a 400 with the code `error`."""
    if key not in body or (body[key] is None and not required):
        if required:
            raise Reject(400, error, f"{key} is required.")
        return default
    value = body[key]
    # bool is an int in Python; a flag is never a count and a count never a flag.
    if isinstance(value, bool) != (kinds is bool) or not isinstance(value, kinds):
        raise Reject(400, error, f"{key} has the wrong type.")
    return value
