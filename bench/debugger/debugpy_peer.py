"""Runs the subject under debugpy, with the one breakpoint set by a client of its protocol, and prints the ratios of
loop and calls to the same without a debugger, in this process before."""

import json
import os
import socket
import statistics
import sys
import threading

import subject

ROUNDS = 9


class Client:
    def __init__(self, port):
        self._socket = socket.create_connection(("127.0.0.1", port))
        self._file = self._socket.makefile("rb")
        self._sequence = 0

    def send(self, command, arguments):
        self._sequence += 1
        body = json.dumps(
            {"seq": self._sequence, "type": "request", "command": command, "arguments": arguments}
        ).encode()
        self._socket.sendall(b"Content-Length: %d\r\n\r\n" % len(body) + body)
        return self._sequence

    def wait_for(self, is_wanted):
        while True:
            length = 0
            while line := self._file.readline().strip():
                name, _, value = line.partition(b":")
                if name.lower() == b"content-length":
                    length = int(value)
            message = json.loads(self._file.read(length))
            if message.get("success") is False:
                sys.exit(f"debugpy refused: {message}")
            if is_wanted(message):
                return message

    def request(self, command, arguments):
        sequence = self.send(command, arguments)
        return self.wait_for(lambda message: message.get("request_seq") == sequence)


def set_breakpoint(port, ready):
    client = Client(port)
    client.request("initialize", {"adapterID": "bench", "pathFormat": "path"})
    # Attach is answered behind the end of the configuration.
    attach = client.send("attach", {"justMyCode": False})
    client.wait_for(lambda message: message.get("event") == "initialized")
    answer = client.request(
        "setBreakpoints",
        {
            "source": {"path": os.path.abspath(subject.__file__)},
            "breakpoints": [{"line": subject.line_of(subject.other)}],
        },
    )
    if not answer["body"]["breakpoints"][0]["verified"]:
        sys.exit(f"debugpy did not take the breakpoint: {answer}")
    client.send("configurationDone", {})
    client.wait_for(lambda message: message.get("request_seq") == attach)
    ready.set()
    client.wait_for(lambda message: False)


def median(function):
    return statistics.median(function() for _ in range(ROUNDS))


def main():
    plain = [median(subject.time_loop), median(subject.time_calls)]
    import debugpy

    _, port = debugpy.listen(("127.0.0.1", 0))
    ready = threading.Event()
    threading.Thread(target=set_breakpoint, args=(port, ready), daemon=True).start()
    debugpy.wait_for_client()
    ready.wait()
    debugged = [median(subject.time_loop), median(subject.time_calls)]
    print(*(with_it / without for with_it, without in zip(debugged, plain)))
    sys.stdout.flush()
    os._exit(0)


main()
