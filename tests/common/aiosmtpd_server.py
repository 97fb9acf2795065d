#!/usr/bin/python3
"""A real SMTP server for tests, built on aiosmtpd's Controller.

Listens on 127.0.0.1 on a free port, prints "PORT <n>" once it accepts
connections, and stops when stdin closes or after --max-seconds. Each
message goes to --out DIR as msg-N.json (the envelope) and then msg-N.eml
(the content after the server's removal of transparency dots, renamed into
place before the client gets its 250).
"""

import argparse
import json
import os
import ssl
import sys
import threading

from aiosmtpd.controller import Controller
from aiosmtpd.smtp import SMTP, AuthResult, LoginPassword


class Recorder:
    def __init__(self, out_dir):
        self.out_dir = out_dir
        self.count = 0
        self.lock = threading.Lock()

    async def handle_DATA(self, server, session, envelope):
        with self.lock:
            self.count += 1
            number = self.count
        base = os.path.join(self.out_dir, "msg-%d" % number)
        with open(base + ".json", "w", encoding="utf-8") as f:
            json.dump({"mail_from": envelope.mail_from, "rcpt_tos": list(envelope.rcpt_tos)}, f)
        with open(base + ".eml.part", "wb") as f:
            f.write(envelope.original_content or b"")
        os.replace(base + ".eml.part", base + ".eml")
        return "250 OK message %d accepted" % number


class FreePortController(Controller):
    """Binds port 0 and learns the port it was given; optional line limit."""

    def __init__(self, *args, line_limit=0, **kwargs):
        super().__init__(*args, **kwargs)
        self.line_limit = line_limit

    def factory(self):
        # The limit is read at construction, so it goes on a subclass.
        smtp_class = type("LongLineSMTP", (SMTP,), {"line_length_limit": self.line_limit}) if self.line_limit else SMTP
        return smtp_class(self.handler, **self.SMTP_kwargs)

    def _trigger_server(self):
        if self.port == 0 and self.server is not None:
            self.port = self.server.sockets[0].getsockname()[1]
        super()._trigger_server()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--starttls", action="store_true")
    parser.add_argument("--smtps", action="store_true")
    parser.add_argument("--cert")
    parser.add_argument("--key")
    parser.add_argument("--auth-login", metavar="USER:PASSWORD")
    parser.add_argument("--out", required=True)
    parser.add_argument("--max-seconds", type=float, default=120.0)
    parser.add_argument("--line-limit", type=int, default=0)
    args = parser.parse_args()
    os.makedirs(args.out, exist_ok=True)

    options = {"server_hostname": "localhost", "ready_timeout": 10.0}
    if args.starttls or args.smtps:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(args.cert, args.key)
        options["ssl_context" if args.smtps else "tls_context"] = context
    if args.auth_login:
        expected = LoginPassword(*(part.encode("utf-8") for part in args.auth_login.split(":", 1)))

        def authenticate(server, session, envelope, mechanism, auth_data):
            # handled=False lets the server send its own 535 on a refusal.
            return AuthResult(success=auth_data == expected, handled=False)

        options.update(authenticator=authenticate, auth_exclude_mechanism=["PLAIN"],
                       auth_require_tls=args.starttls)

    controller = FreePortController(Recorder(args.out), hostname="127.0.0.1", port=0,
                                    line_limit=args.line_limit, **options)
    controller.start()
    try:
        print("PORT %d" % controller.port, flush=True)
        stdin_closed = threading.Event()

        def watch_stdin():
            while sys.stdin.buffer.read(4096):
                pass
            stdin_closed.set()

        threading.Thread(target=watch_stdin, daemon=True).start()
        stdin_closed.wait(args.max_seconds)
    finally:
        controller.stop()


if __name__ == "__main__":
    main()
