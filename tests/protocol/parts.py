"""A private session bus and programs on it, for the tests of the protocol's other side."""
import contextlib
import os
import pathlib
import subprocess
import tempfile
import time

PATIENCE = 60  # seconds; a loaded machine takes its time


@contextlib.contextmanager
def running(command, **options):
    """The program, ended when the block is left."""
    process = subprocess.Popen([str(word) for word in command], stdin=subprocess.DEVNULL, **options)
    try:
        yield process
    finally:
        process.terminate()
        try:
            process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


@contextlib.contextmanager
def private_bus():
    """A folder of its own and an environment whose session bus nobody else uses."""
    with tempfile.TemporaryDirectory(prefix="kvl-protocol-") as folder:
        command = ["dbus-daemon", "--session", "--nofork", "--print-address"]
        with running(command, stdout=subprocess.PIPE, text=True) as bus:
            environment = dict(os.environ, DBUS_SESSION_BUS_ADDRESS=bus.stdout.readline().strip(),
                               XDG_RUNTIME_DIR=folder, HOME=folder)
            yield pathlib.Path(folder), environment


def wait_until(condition, what, process=None):
    """What the condition returns, once that is something."""
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        result = condition()
        if result:
            return result
        if process is not None and process.poll() is not None:
            raise RuntimeError(f"{what}: the program ended with {process.returncode}")
        time.sleep(0.02)
    raise RuntimeError(f"{what}: not within {PATIENCE} s")


def wait_for_name(name, environment):
    subprocess.run(["gdbus", "wait", "--session", "--timeout", str(PATIENCE), name],
                   env=environment, check=True)
