# SPDX-License-Identifier: MIT
"""Calls that are awaited: the event loop watches a descriptor of the host, and no thread waits. Calls of one host take
turns, with those of other threads. Only while a process starts or ends a thread waits for that, and then ends."""

from __future__ import annotations

import asyncio
import threading
from collections.abc import Callable, Mapping
from typing import TYPE_CHECKING, Any

from ._errors import Cancelled

if TYPE_CHECKING:
    from ._kahost import Function, Steps


class CancelledInLoop(Cancelled, asyncio.CancelledError):
    """The call was ended by Module.cancel."""


def _settle(future: asyncio.Future[Any]) -> None:
    if not future.done():
        future.set_result(None)


async def _readable(loop: asyncio.AbstractEventLoop, fd: int) -> None:
    future = loop.create_future()
    loop.add_reader(fd, _settle, future)
    try:
        await future
    finally:
        loop.remove_reader(fd)


async def _in_thread(loop: asyncio.AbstractEventLoop, work: Callable[[], bool]) -> bool:
    """Not in the loop's executor, whose threads stay. To its end, also when the task is cancelled."""
    over: list[bool] = []
    future = loop.create_future()

    def run() -> None:
        over.append(work())
        loop.call_soon_threadsafe(_settle, future)

    thread = threading.Thread(target=run, name="kahost aio", daemon=True)
    thread.start()
    cancelled = None
    while not future.done():
        try:
            await asyncio.shield(future)
        except asyncio.CancelledError as error:
            cancelled = error
    thread.join()
    if cancelled is not None:
        raise cancelled
    return over[0]


async def _step(loop: asyncio.AbstractEventLoop, steps: Steps) -> bool:
    """Whether the call is over."""
    return await _in_thread(loop, steps.long_step) if steps.takes_long() else steps.step()


async def _end(loop: asyncio.AbstractEventLoop, steps: Steps) -> None:
    """Cancels the call, and waits until its end is known, however often the task is cancelled."""
    steps.cancel()
    over = False
    while not over:
        try:
            over = await _step(loop, steps)
            if not over:
                await _readable(loop, steps.fileno())
        except asyncio.CancelledError:
            pass


async def call(function: Function, args: tuple[object, ...], kwargs: Mapping[str, object]) -> Any:
    """What function.aio awaits."""
    loop = asyncio.get_running_loop()
    steps = function._begin(*args, **kwargs)
    try:
        while not await _step(loop, steps):
            await _readable(loop, steps.fileno())
    except asyncio.CancelledError:
        await _end(loop, steps)
        raise
    try:
        return steps.result()
    except Cancelled as error:
        cancelled = CancelledInLoop(*error.args)
        cancelled.__dict__.update(error.__dict__)
        raise cancelled from None
