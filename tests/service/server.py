#!/usr/bin/python3
"""Reference service: an in-memory stand-in for the hosted server, for tests and the demo.

Prints one line, "LISTENING http://<host>:<port>", once it accepts connections; everything
else goes to stderr. See README.md for the control interface.
"""

import argparse
import asyncio
import logging
import os
import signal
import sys
import threading
import traceback

from aiohttp import web

import control
import webapi
from state import Fault, State
from wire import Reject, header_dict, reply

log = logging.getLogger("service")


class Dropped(web.Response):
    """Stands for a reply never sent: the connection was closed instead."""


def _record(request: web.Request) -> dict:
    query_string = request.raw_path.partition("?")[2]
    # The body stays bytes until someone reads the log: uploads can be large.
    return {
        "method": request.method, "path": request.path[1:], "query_string": query_string,
        "headers": header_dict(request), "body": b"", "status": None,
    }


def _drop(request: web.Request) -> web.Response:
    if request.transport is not None:
        request.transport.close()
    return Dropped()


async def _read_part(request: web.Request) -> bytes:
    """Some of the body, never all of it when there is more than a byte."""
    length = request.content_length or 2
    return await request.content.read(max(1, length // 2))


async def _answer(request: web.Request, state: State, fault: Fault | None) -> web.StreamResponse:
    if fault is not None:
        if fault.delay and fault.after != "hold":
            await asyncio.sleep(fault.delay)
        if fault.drop:
            return _drop(request)
        if fault.status is not None:
            return control.fault_reply(fault)
    if request.path.startswith("/webapi/"):
        return await webapi.respond(request, state)
    raise Reject(404, "not_found")


def _failure(request: web.Request, error: BaseException) -> web.Response:
    if isinstance(error, Reject):
        return error.response()
    if isinstance(error, web.HTTPException):  # e.g. a body over the size limit
        code = error.reason.lower().replace(" ", "_")
        return reply({"error": code, "detail": error.reason}, error.status)
    detail = f"{type(error).__name__}: {error}"
    print(f"service: internal error on {request.method} {request.path}: {detail}",
          file=sys.stderr, flush=True)
    log.info("%s", "".join(traceback.format_exception(error)))
    return reply({"error": "internal", "detail": detail}, 500)


async def dispatch(request: web.Request) -> web.StreamResponse:
    state: State = request.app["state"]
    if request.path.startswith("/_control/"):
        try:
            return await control.handle(request, state)
        except Exception as error:
            return _failure(request, error)
    # The entry goes in on arrival, so the log keeps the order requests came in.
    entry = _record(request)
    state.remember(entry)
    request["log_entry"] = entry
    query_string = request.raw_path.partition("?")[2]
    fault = state.take_fault(request.method,
                             request.path[1:] + ("?" + query_string if query_string else ""))
    try:
        if fault is not None and fault.drop_mid_body:
            entry["body"] = await _read_part(request)
            if fault.delay:
                await asyncio.sleep(fault.delay)
            response = _drop(request)
        else:
            entry["body"] = await request.read()
            response = await _answer(request, state, fault)
    except asyncio.CancelledError:
        entry["status"] = 0  # the client went away before the answer
        raise
    except Exception as error:
        response = _failure(request, error)
    if fault is not None and fault.after == "drop" and not isinstance(response, Dropped):
        response = _drop(request)  # served in full, but the client never hears of it
    if fault is not None and fault.after == "hold":
        await asyncio.sleep(fault.delay)  # served in full; the answer waits
    entry["status"] = 0 if isinstance(response, Dropped) else response.status
    return response


async def _close_sockets(app: web.Application) -> None:
    await app["state"].hub.close_all()


def make_app() -> web.Application:
    # Uploads of recordings and videos are far over aiohttp's 1 MiB default.
    app = web.Application(client_max_size=512 * 1024 * 1024)
    app["state"] = State()
    app.router.add_route("*", "/{tail:.*}", dispatch)
    app.on_shutdown.append(_close_sockets)
    return app


def _watch_stdin(loop: asyncio.AbstractEventLoop, stop: asyncio.Event) -> None:
    def run():
        try:
            while os.read(0, 65536):
                pass
        except OSError:
            pass
        loop.call_soon_threadsafe(stop.set)

    threading.Thread(target=run, name="stdin-eof", daemon=True).start()


async def serve(args: argparse.Namespace) -> None:
    loop = asyncio.get_running_loop()
    stop = asyncio.Event()
    for sig in (signal.SIGTERM, signal.SIGINT):
        loop.add_signal_handler(sig, stop.set)
    if args.exit_on_stdin_eof:
        _watch_stdin(loop, stop)

    runner = web.AppRunner(make_app(), access_log=log if args.verbose else None,
                           handle_signals=False)
    await runner.setup()
    site = web.TCPSite(runner, args.host, args.port, shutdown_timeout=1.0)
    await site.start()
    port = runner.addresses[0][1]
    host = f"[{args.host}]" if ":" in args.host else args.host
    sys.stdout.write(f"LISTENING http://{host}:{port}\n")
    sys.stdout.flush()
    try:
        await stop.wait()
    finally:
        await runner.cleanup()


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--host", default="127.0.0.1")
    parser.add_argument("--port", type=int, default=0, help="0 lets the system pick one")
    parser.add_argument("--verbose", action="store_true", help="access log on stderr")
    parser.add_argument("--exit-on-stdin-eof", action="store_true",
                        help="stop when stdin closes, so a killed parent leaves nothing behind")
    args = parser.parse_args()
    logging.basicConfig(stream=sys.stderr, level=logging.INFO if args.verbose else logging.ERROR,
                        format="%(asctime)s %(name)s %(message)s")
    try:
        asyncio.run(serve(args))
    except OSError as error:  # e.g. the port is taken
        print(f"service: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
