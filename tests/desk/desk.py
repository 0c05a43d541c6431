"""A camera with its daemon and desk, to be started in a world of its own, and a client of the desk.

desk.py BUILD [OPTION...] -- COMMAND... - runs a command beside them, which finds the desk's address in $KZ_DESK; the
options are kzCameraSim's.
"""

import contextlib
import http.client
import json
import os
import socket
import subprocess
import sys
import threading
import time

PROJECT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PATIENCE = 20


def wait_until(what, condition):
    deadline = time.monotonic() + PATIENCE
    while not (found := condition()):
        if time.monotonic() > deadline:
            raise AssertionError("waited in vain for " + what)
        time.sleep(0.02)
    return found


class Desk:
    """The three programs; stop() ends them."""

    def __init__(self, build, *options):
        os.environ["PATH"] = ":".join([f"{build}/client", f"{build}/simulator", f"{build}/kzBleSdkD/src",
                                       f"{build}/desk", os.environ["PATH"]])
        os.environ["KZ_CATALOGUE"] = "/usr/local/zorvik/etc/58/settings.json"
        if not os.path.exists(os.environ["KZ_CATALOGUE"]):
            subprocess.run([f"{PROJECT}/scripts/camera-files"], check=True)
        self.camera = subprocess.Popen(["kzCameraSim", "--metadata-file", "/tmp/metadata.kzmf", *options],
                                       stdout=subprocess.DEVNULL)
        wait_until("the radio", lambda: os.path.exists("/tmp/kzcamera/radio"))
        self.start_daemon()
        self.desk = subprocess.Popen(["kzdesk", "--listen", "0"], stdout=subprocess.PIPE, text=True)
        self.port = int(self.desk.stdout.readline().rsplit(":", 1)[1])

    def start_daemon(self):
        for queue in ("to_kzBleD", "to_blesdk"):  # of one that was killed
            with contextlib.suppress(FileNotFoundError):
                os.unlink(f"/dev/mqueue/{queue}")
        self.daemon = subprocess.Popen(["kzBleSdkD"], stderr=subprocess.DEVNULL)
        wait_until("the daemon", lambda: subprocess.run(["kzble", "--timeout", "500", "info"],
                                                        capture_output=True).returncode == 0)

    def ask(self, method, path, body=None, headers=None):
        """Status, headers and body; JSON is parsed."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=PATIENCE)
        if isinstance(body, (dict, list)):
            body, headers = json.dumps(body), {"content-type": "application/json", **(headers or {})}
        connection.request(method, path, body, headers or {})
        answer = connection.getresponse()
        text = answer.read()
        connection.close()
        is_json = answer.headers.get("content-type") == "application/json"
        return answer.status, answer.headers, json.loads(text) if is_json else text

    def connect(self, **wish):
        status, _, device = self.ask("POST", "/devices", {"gates": True, **wish})
        assert status == 201, device
        return device["device"]

    def events(self, path, **headers):
        return Events(self.port, path, headers)

    def raw(self, text):
        """What comes back for these bytes, behind which nothing is sent any more, until the connection is closed."""
        with socket.create_connection(("127.0.0.1", self.port), PATIENCE) as connection:
            connection.sendall(text.encode())
            connection.shutdown(socket.SHUT_WR)
            answer = b""
            while part := connection.recv(65536):
                answer += part
        return answer.decode()

    def stop(self):
        for program in (self.desk, self.daemon, self.camera):
            if program.poll() is None:
                program.terminate()
            program.wait(PATIENCE)
        self.desk.stdout.close()
        assert self.desk.returncode == 0, "the desk ended with an error"


class Events:
    """An event stream, read by a thread of its own."""

    def __init__(self, port, path, headers):
        self.connection = http.client.HTTPConnection("127.0.0.1", port, timeout=PATIENCE)
        self.connection.request("GET", path, headers=headers)
        self.socket = self.connection.sock
        self.answer = self.connection.getresponse()
        self.seen, self.finished = [], False
        self.thread = threading.Thread(target=self.read, daemon=True)
        self.thread.start()

    def read(self):
        try:
            self.read_events()
        except (http.client.HTTPException, OSError, AttributeError):
            pass  # closed here
        self.finished = True

    def read_events(self):
        event = {}
        for line in self.answer:
            name, _, value = line.decode().rstrip("\n").partition(": ")
            if name:
                event[name] = value
            elif "event" in event:
                self.seen.append((int(event.get("id", 0)), event["event"], json.loads(event["data"])))
                event = {}

    def find(self, name, **members):
        """The first event of this name with these members, waited for."""
        def fits(event):
            return event[1] == name and all(event[2].get(key) == value for key, value in members.items())
        return wait_until(f"{name} {members}", lambda: next((one for one in list(self.seen) if fits(one)), None))

    def close(self):
        self.socket.shutdown(socket.SHUT_RDWR)


def main():
    split = sys.argv.index("--")
    desk = Desk(*sys.argv[1:split])
    try:
        os.environ["KZ_DESK"] = f"http://127.0.0.1:{desk.port}"
        return subprocess.run(sys.argv[split + 1:]).returncode
    finally:
        desk.stop()


if __name__ == "__main__":
    sys.exit(main())
