# SPDX-License-Identifier: MIT
"""Calls that are awaited: the event loop watches a descriptor of the host, and no thread waits. Calls of one host take
turns, with those of other threads. Only while a process starts or ends a thread waits for that, and then ends."""

from __future__ import annotations

import asyncio
import threading
import time
from collections.abc import Mapping
from typing import TYPE_CHECKING, Any

from ._errors import Cancelled

if TYPE_CHECKING:
    from ._kahost import Function, Steps

LONGEST_S = 0.005  # for calls that need not wait, before others of the loop have their turn
AGAIN_S = 0.05
LOOK_S = 1.0  # the program may close the descriptor while it is waited for
_paused = 0.0


class CancelledInLoop(Cancelled, asyncio.CancelledError):
    """The call was ended by Module.cancel."""


def _settle(future: asyncio.Future[Any]) -> None:
    if not future.done():
        future.set_result(None)


async def _readable(steps: Steps) -> None:
    """Waits until there may be something for a step."""
    loop = asyncio.get_running_loop()
    future = loop.create_future()
    fd = steps.fileno()
    loop.add_reader(fd, _settle, future)
    timer = loop.call_later(LOOK_S, _settle, future)
    try:
        await future
    finally:
        timer.cancel()
        loop.remove_reader(fd)


async def _long_step(steps: Steps) -> bool:
    """In a thread, but not one of the loop's executor, which stay. To its end, which comes soon when the task is cancelled."""
    loop = asyncio.get_running_loop()
    over: list[bool] = []
    future = loop.create_future()

    def run() -> None:
        over.append(steps.long_step())
        try:
            loop.call_soon_threadsafe(_settle, future)
        except RuntimeError:  # the loop was closed
            pass

    thread = threading.Thread(target=run, name="kahost aio", daemon=True)
    thread.start()
    cancelled = None
    while not future.done():
        try:
            await asyncio.wait([future], timeout=None if cancelled is None else AGAIN_S)
        except asyncio.CancelledError as error:
            cancelled = error
        if cancelled is not None:
            steps.cancel()  # again, until there is something to cancel
    thread.join()
    if cancelled is not None:
        raise cancelled
    return over[0]


async def _end(steps: Steps) -> None:
    """Cancels the call, and waits until its end is known, however often the task is cancelled."""
    steps.cancel()
    over: bool | None = False
    while not over:
        try:
            over = steps.step()
            if over is None:
                over = await _long_step(steps)
            elif not over:
                await _readable(steps)
        except asyncio.CancelledError:
            pass


async def call(function: Function, args: tuple[object, ...], kwargs: Mapping[str, object]) -> Any:
    """What function.aio awaits."""
    global _paused
    steps = function._begin(*args, **kwargs)
    over = steps.step()
    try:
        while not over:
            if over is None:
                over = await _long_step(steps)
            else:
                await _readable(steps)
                over = steps.step()
        if (now := time.monotonic()) - _paused > LONGEST_S:
            _paused = now
            await asyncio.sleep(0)
    except asyncio.CancelledError:
        await _end(steps)
        raise
    try:
        return steps.result()
    except Cancelled as error:
        cancelled = CancelledInLoop(*error.args)
        cancelled.__dict__.update(error.__dict__)
        raise cancelled from None
