#!/usr/bin/env python3
"""deskTest.py BUILD - the desk with a real daemon on a simulated camera. To be run in a world of its own."""

import contextlib
import json
import os
import socket
import subprocess
import sys
import threading
import time
import unittest

from desk import PROJECT, Desk, wait_until

with open(os.path.join(PROJECT, "desk/openapi.json")) as file:
    DESCRIPTION = json.load(file)
JSON = {"content-type": "application/json"}
TYPES = {"object": dict, "array": list, "string": str, "integer": int, "boolean": bool}


def check(schema, value, where):
    """That a value is as the description says."""
    if "$ref" in schema:
        schema = DESCRIPTION["components"]["schemas"][schema["$ref"].rsplit("/", 1)[1]]
    if "type" in schema and not isinstance(value, TYPES[schema["type"]]):
        raise AssertionError(f"{where} is no {schema['type']}: {value}")
    for name in schema.get("required", []):
        assert name in value, f"{where} has no {name}"
    unknown = set(value) - set(schema["properties"]) if "properties" in schema else set()
    assert not unknown or schema.get("additionalProperties", False), f"{where} has {unknown}, of which nothing is said"
    for name, inner in schema.get("properties", {}).items():
        if name in value:
            check(inner, value[name], f"{where}.{name}")
    for one in value if "items" in schema else []:
        check(schema["items"], one, where + "[]")


class DeskTest(unittest.TestCase):
    def setUp(self):
        self.desk = Desk(sys.argv[1])
        self.addCleanup(self.desk.stop)

    def refused(self, status, *request, code=None):
        got, _, answer = self.desk.ask(*request)
        self.assertEqual(got, status, f"{request}: {answer}")
        check({"$ref": "/Error"}, answer, str(request))
        if code:
            self.assertEqual(answer["error"]["code"], code)

    def test_the_description_is_true(self):
        self.assertEqual(self.desk.connect(), 1)
        for path, operations in DESCRIPTION["paths"].items():
            real = path.replace("{N}", "1")
            methods = {method.upper() for method in operations if method != "parameters"}
            status, headers, _ = self.desk.ask("PUT", real)
            self.assertEqual((status, set(headers["allow"].split(", "))), (405, methods), path)
            for method in methods:
                with self.subTest(method + " " + path):
                    self.play(method, path, real, operations[method.lower()])

    def play(self, method, path, real, operation):
        success = min(operation["responses"])
        response = operation["responses"][success]
        kind, content = next(iter(response.get("content", {None: None}).items()))
        if kind == "text/event-stream":
            stream = self.desk.events(real)
            self.assertEqual((stream.answer.status, stream.answer.headers["content-type"]), (200, kind))
            wait_until("the first event", lambda: stream.seen)
            stream.close()
            return
        body = None
        if "requestBody" in operation:
            body = operation["requestBody"]["content"]["application/json"]["example"]
            self.refused(400, method, real, "[]", JSON)
            self.refused(415, method, real, "{}", {"content-type": "text/plain"})
            self.refused(413, method, real, " " * 70000, JSON)
        status, headers, answer = self.desk.ask(method, real, body)
        self.assertEqual((status, headers["content-type"]), (int(success), kind), answer)
        if content:
            check(content["schema"], answer, path)

    def test_a_phone_shoots_and_is_notified(self):
        number = self.desk.connect()
        events = self.desk.events(f"/devices/{number}/events")
        write = f"/devices/{number}/write"
        self.assertEqual(self.desk.ask("POST", write, {"stream": 2, "bytes": "03010101"})[0], 202)
        request = events.find("message", direction="write")
        self.assertEqual((request[2]["bytes"], request[2]["meaning"]["name"]), ("01 01 01", "shutter"))
        self.assertEqual(self.desk.ask("POST", write, {"stream": 12, "message": "12 02"})[0], 202)
        self.assertEqual(events.find("message", stream=14)[2]["meaning"]["text"], "success, Video Resolution = 4K (1)")
        events.find("packet", direction="notify", stream=4, bytes="02 01 00")
        answer = events.find("message", direction="notify", stream=4)
        self.assertGreater(answer[0], request[0])
        self.assertEqual(answer[2]["meaning"]["what"], "answer")
        self.assertEqual(answer[2]["meaning"]["result"], {"code": 0, "name": "success"})

        long = self.desk.ask("POST", write, {"stream": 12, "message": "53 45" + "46" * 39})[2]
        self.assertEqual(long, {"packets": 3})
        wait_until("an answer", lambda: any(one[2].get("bytes", "").startswith("53 00 45") for one in list(events.seen)))
        self.desk.ask("POST", write, {"stream": 12, "message": "73 45"})
        events.find("message", stream=14, bytes="73 00")
        self.assertEqual(self.desk.ask("POST", "/do", {"command": ["battery", "41"]})[2], {"output": None})
        push = wait_until("a push", lambda: next((one for one in list(events.seen) if one[1] == "message" and
                                                  one[2]["bytes"] == "93 00 46 01 29"), None))
        self.assertEqual(push[2]["meaning"]["what"], "push")

        resumed = self.desk.events(f"/devices/{number}/events", **{"Last-Event-ID": str(push[0] - 1)})
        wait_until("the push again", lambda: resumed.seen)
        self.assertEqual(resumed.seen[0], push)
        of_another_desk = self.desk.events(f"/devices/{number}/events", **{"Last-Event-ID": "99999"})
        wait_until("what there is", lambda: of_another_desk.seen)
        self.assertEqual(of_another_desk.seen[0], events.seen[0])

        everything = self.desk.events("/events?devices=all")
        everything.find("message", device=number, bytes="93 00 46 01 29")
        self.desk.ask("POST", f"/devices/{number}/ccc", {"descriptor": 5, "value": 0})
        everything.find("gate", device=number, descriptor=5, value=0)
        state = self.desk.ask("GET", "/state")[2]
        self.assertEqual(state["devices"][0]["gates"], {"5": 0, "10": 1, "15": 1, "20": 1})
        self.assertEqual(state["devices"][0]["interests"], {"status": [70]})
        self.assertEqual([one["id"] for one in state["connections"]], [state["devices"][0]["connection"]])

    def test_only_who_knows_the_desk_may_ask(self):
        here = f"127.0.0.1:{self.desk.port}"
        rows = [({"Host": "evil.example:%d" % self.desk.port}, 403), ({"Host": "127.0.0.1"}, 403),
                ({"Host": "127.0.0.1:1"}, 403), ({"Host": f"LocalHost:{self.desk.port}"}, 200),
                ({"Host": f"[::1]:{self.desk.port}"}, 200), ({"Origin": "http://evil.example"}, 403),
                ({"Origin": "null"}, 403), ({"Origin": "https://" + here}, 403), ({"Origin": "http://localhost:1"}, 403),
                ({"Origin": "http://" + here}, 200), ({"Sec-Fetch-Site": "cross-site"}, 403)]
        for headers, status in rows:
            for path in ("/state", "/"):
                self.assertEqual(self.desk.ask("GET", path, None, headers)[0], status, f"{path} {headers}")
        # What a foreign page puts behind a refused request is no request of its own.
        hidden = f"GET /state HTTP/1.1\r\nHost: {here}\r\n\r\n"
        for type in ("multipart/form-data", "text/plain"):
            answer = self.desk.raw(f"POST /do HTTP/1.1\r\nHost: {here}\r\nOrigin: http://evil.example\r\n"
                                   f"Content-Type: {type}\r\nContent-Length: {len(hidden)}\r\n\r\n{hidden}")
            self.assertEqual((answer[9:12], answer.count("HTTP/1.1")), ("403", 1), answer)

    def test_what_is_wrong_is_refused(self):
        number = self.desk.connect(address="02:00:00:00:00:99")
        write, gate = f"/devices/{number}/write", f"/devices/{number}/ccc"
        for body in [{"stream": 2}, {"stream": 2, "bytes": ""}, {"stream": 2, "bytes": "0"}, {"stream": 2, "bytes": "xx"},
                     {"stream": 2, "bytes": "00" * 21}, {"stream": 4, "bytes": "00"}, {"stream": -1, "bytes": "00"},
                     {"stream": 27, "message": "00"}, {"stream": 2, "message": "00" * 7600},
                     {"stream": 2, "bytes": "00", "message": "00"}]:
            self.refused(400, "POST", write, body, code="bad-request")
        for text in ('{"stream": 2, "bytes": "00"}\0', '{"stream": 2, "stream": 2, "bytes": "00"}'):
            self.refused(400, "POST", write, text, JSON)
        self.assertEqual(self.desk.ask("GET", "/state", None, {"Range": "bytes=0-3"})[0], 200)
        for path, body, status in [(gate, {"descriptor": 4, "value": 1}, 400), (gate, {"descriptor": 5}, 400),
                                   ("/devices", {"type": "teapot"}, 400), ("/devices", {"address": "02"}, 400),
                                   ("/devices", {"address": "02:00:00:00:00:99"}, 409),
                                   ("/devices/77/write", {"stream": 2, "bytes": "00"}, 404),
                                   ("/do", {"command": ["battery", "101"]}, 400), ("/do", {"command": []}, 400),
                                   ("/do", {"command": ["undo"]}, 502), ("/devices", {"tipe": "phone"}, 400)]:
            self.refused(status, "POST", path, body)
        self.refused(413, "POST", "/do", iter([b" " * 70000]), JSON)  # without a length
        self.refused(404, "GET", "/../desk/main.cpp")
        self.refused(400, "GET", f"/devices/{number}/events?from=x")

    def test_there_are_limits(self):
        numbers = [self.desk.connect(address="02:00:00:00:01:02"), *(self.desk.connect() for _ in range(19))]
        self.refused(429, "POST", "/devices", {}, code="too-many-devices")
        path = f"/devices/{numbers[0]}/events"
        streams = [self.desk.events(path) for _ in range(8)]
        self.refused(429, "GET", path, code="too-many-streams")
        streams[0].close()
        wait_until("room for a stream", lambda: self.desk.events(path).answer.status == 200)
        self.desk.ask("DELETE", f"/devices/{numbers[1]}")
        self.assertEqual(self.desk.connect(), 21)

    def test_streams_end_in_order(self):
        deleted, dropped, kept = (self.desk.connect() for _ in range(3))
        streams = [self.desk.events(f"/devices/{number}/events") for number in (deleted, dropped, kept)]
        state = self.desk.events("/events")
        state.find("state")
        self.desk.ask("DELETE", f"/devices/{deleted}")
        connection = self.desk.ask("GET", "/state")[2]["devices"][0]["connection"]
        self.desk.ask("POST", "/do", {"command": ["radio", "drop", "0", str(connection)]})
        streams[1].find("end", reason="disconnected")
        self.refused(404, "DELETE", f"/devices/{dropped}", code="no-such-device")
        wait_until("the state without it", lambda: len(state.seen[-1][2]["devices"]) == 1)
        slow = socket.create_connection(("127.0.0.1", self.desk.port))

        def send_a_request_that_never_ends():
            with contextlib.suppress(OSError):
                while True:
                    slow.sendall(b"GET /state HT")
                    time.sleep(0.2)
        threading.Thread(target=send_a_request_that_never_ends, daemon=True).start()
        self.desk.desk.terminate()
        for stream, reason in zip([*streams, state], ("deleted", "disconnected", "desk stops", "desk stops")):
            stream.find("end", reason=reason)
            wait_until("the end of a stream", lambda: stream.finished)
            self.assertEqual(stream.seen[-1][1], "end")
        self.assertEqual(self.desk.desk.wait(10), 0)

    def test_a_radio_that_stops_or_dies_ends_devices_and_nothing_else(self):
        number = self.desk.connect()
        events, state = self.desk.events(f"/devices/{number}/events"), self.desk.events("/events")
        self.desk.ask("POST", "/do", {"command": ["part", "radio", "hang"]})
        write = ("POST", f"/devices/{number}/write", {"stream": 2, "message": "01" * 7000})
        wait_until("a full radio", lambda: self.desk.ask(*write)[0] == 503)
        events.find("end", reason="the camera takes nothing")
        self.desk.ask("POST", "/do", {"command": ["part", "radio", "kill"]})
        wait_until("a state without it", lambda: state.seen and state.seen[-1][2]["camera"]["radio"] is None)
        self.assertEqual(self.desk.ask("GET", "/state")[2]["connections"], [])
        self.desk.ask("POST", "/do", {"command": ["part", "radio", "start"]})
        self.assertIn("percent", self.desk.ask("POST", "/do", {"command": ["battery", "--help"]})[2]["output"])

    def test_a_daemon_that_goes_ends_devices_and_a_reader_sees_it_later_too(self):
        events = self.desk.events(f"/devices/{self.desk.connect()}/events")
        self.desk.daemon.terminate()
        self.desk.daemon.wait(10)
        self.desk.start_daemon()
        self.assertIn("Bluetooth daemon", events.find("end")[2]["reason"])
        number = self.desk.connect()
        self.desk.daemon.kill()  # which leaves its queues
        self.desk.daemon.wait(10)
        self.refused(503, "POST", "/devices", {}, code="no-camera")
        end = self.desk.events("/events?devices=all").find("end", device=number)
        self.assertIn("does not read", end[2]["reason"])

    def test_without_a_camera_the_desk_says_so(self):
        self.desk.camera.terminate()
        self.desk.camera.wait(10)
        for request in [("GET", "/state"), ("POST", "/devices", {}), ("POST", "/do", {"command": ["state"]})]:
            self.refused(503, *request, code="no-camera")
        self.assertEqual(subprocess.run(["kzdesk", "--listen", str(self.desk.port)], capture_output=True,
                                        timeout=10).returncode, 1)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
