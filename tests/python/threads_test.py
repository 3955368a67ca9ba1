"""Several threads at once, and what the others do during a call."""

import threading
import time
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest

import ko

THREADS = 8


def at_once(call):
    """The results of a call that several threads begin at the same time."""
    barrier = threading.Barrier(THREADS)

    def run(_):
        barrier.wait()
        return [call() for _ in range(3)]

    with ThreadPoolExecutor(THREADS) as pool:
        return [result for results in pool.map(run, range(THREADS)) for result in results]


def test_the_same_bytes(rocket, face):
    enhanced, enhancement = ko.enhance(rocket)
    repaired, eyes = ko.redeye(face)
    blurred = ko.KernelGaussian(3).blur(rocket[..., 0])

    def work():
        return ko.enhance(rocket), ko.redeye(face), enhancement.curves.apply(rocket), ko.KernelGaussian(3).blur(rocket[..., 0])

    for (one, decision), (two, found), three, four in at_once(work):
        assert np.array_equal(one, enhanced) and decision == enhancement
        assert np.array_equal(two, repaired) and found == eyes
        assert np.array_equal(three, enhanced)
        assert np.array_equal(four, blurred)


def test_failures_stay_with_their_thread():
    def work():
        with pytest.raises(ko.Error) as caught:
            ko.TRC([0, 1]).resize(300)
        return ko.TRC([0, 1, 2]).resize(6).array.shape, caught.value.status

    assert set(at_once(work)) == {((6,), 10)}


def test_threads_take_turns_with_one_histogram(rocket):
    histogram = ko.Histogram()
    at_once(lambda: histogram.count(rocket[..., 0]))
    assert np.array_equal(histogram.values, np.bincount(rocket[..., 0].ravel(), minlength=256) * THREADS * 3)


def test_threads_take_turns_with_one_application():
    picture = np.full((THREADS * 3 * 4, 64, 3), 100, np.uint8)
    application = ko.Curves(np.tile(np.arange(256), (1, 1, 1))).application(picture.shape)
    results = at_once(lambda: application.apply(picture[:4]))
    assert application.left == 0
    assert all(np.array_equal(result, picture[:4]) for result in results)


def test_the_lock_is_released(rocket):
    """A thread goes on with its work while another is within one long call."""
    picture = np.tile(rocket, (3, 3, 1))
    plane = np.ascontiguousarray(picture[..., 0])
    other = picture[::-1].copy()
    calls = [
        lambda: ko.enhance(picture, force=True, working_size=None),
        lambda: ko.judge(picture, working_size=None),
        lambda: ko.Curves.fit(picture, working_size=None),
        lambda: ko.redeye(picture, plain=True),
        lambda: ko.bilateral(plane),
        lambda: ko.KernelGaussian(20).blur(plane),
        lambda: ko.TRC.fit(plane, other[..., 0]),
    ]
    ticks = []
    ended = threading.Event()

    def tick():
        while not ended.is_set():
            ticks.append(time.perf_counter())
            time.sleep(0.0005)

    thread = threading.Thread(target=tick)
    thread.start()
    try:
        for number, call in enumerate(calls):
            start = time.perf_counter()
            call()
            length = time.perf_counter() - start
            # Python's own part of a call lies at its ends.
            inside = [at for at in ticks if start + length * 0.2 < at < start + length * 0.8]
            assert len(inside) >= 3, f"call {number} of {length:.3f} s"
    finally:
        ended.set()
        thread.join()
