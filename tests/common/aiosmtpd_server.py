#!/usr/bin/python3
"""A real SMTP server for tests, built on aiosmtpd's Controller.

Listens on 127.0.0.1 on a free port and prints "PORT <n>" as the first line
on stdout once it accepts connections. Stops when stdin closes, or by itself
after --max-seconds.

Each message is written to --out DIR as msg-N.eml (N from 1; the content as
the server received it, after its own removal of leading transparency dots)
and msg-N.json (the envelope: {"mail_from": ..., "rcpt_tos": [...]}). The
.json file is written first and the .eml file appears (by rename) before
the client gets its 250 reply, so a finished message is always complete.
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
    """Writes every accepted message and its envelope to a directory."""

    def __init__(self, out_dir):
        self.out_dir = out_dir
        self.count = 0
        self.lock = threading.Lock()

    async def handle_DATA(self, server, session, envelope):
        with self.lock:
            self.count += 1
            number = self.count
        if self.out_dir:
            base = os.path.join(self.out_dir, "msg-%d" % number)
            with open(base + ".json", "w", encoding="utf-8") as f:
                json.dump({"mail_from": envelope.mail_from,
                           "rcpt_tos": list(envelope.rcpt_tos)}, f)
            with open(base + ".eml.part", "wb") as f:
                f.write(envelope.original_content or b"")
            os.replace(base + ".eml.part", base + ".eml")
        return "250 OK message %d accepted" % number


def make_authenticator(user, password):
    """Accepts exactly one user name and password."""
    expected = LoginPassword(user.encode("utf-8"), password.encode("utf-8"))

    def authenticate(server, session, envelope, mechanism, auth_data):
        ok = isinstance(auth_data, LoginPassword) and auth_data == expected
        # handled=False lets the server send its own 535 on a refusal.
        return AuthResult(success=ok, handled=False)

    return authenticate


class FreePortController(Controller):
    """A Controller that may bind port 0 and learns the port it was given."""

    def __init__(self, *args, line_limit=None, **kwargs):
        super().__init__(*args, **kwargs)
        self.line_limit = line_limit

    def factory(self):
        smtp_class = SMTP
        if self.line_limit:
            # The limit is read at construction (it also sizes the stream
            # reader), so it goes on a subclass.
            smtp_class = type("LongLineSMTP", (SMTP,), {"line_length_limit": self.line_limit})
        return smtp_class(self.handler, **self.SMTP_kwargs)

    def _trigger_server(self):
        if self.port == 0 and self.server is not None:
            self.port = self.server.sockets[0].getsockname()[1]
        super()._trigger_server()


def tls_context(cert, key):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(cert, key)
    return context


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--starttls", action="store_true", help="offer STARTTLS")
    parser.add_argument("--smtps", action="store_true", help="TLS from the first byte")
    parser.add_argument("--cert", help="PEM certificate for TLS")
    parser.add_argument("--key", help="PEM key for TLS")
    parser.add_argument("--auth-login", metavar="USER:PASSWORD",
                        help="accept AUTH LOGIN with these credentials")
    parser.add_argument("--out", metavar="DIR", help="where messages are written")
    parser.add_argument("--max-seconds", type=float, default=120.0)
    parser.add_argument("--line-limit", type=int, default=0,
                        help="longest accepted line in bytes (default: the server's 1001)")
    args = parser.parse_args()

    if (args.starttls or args.smtps) and not (args.cert and args.key):
        parser.error("--starttls and --smtps need --cert and --key")
    if args.starttls and args.smtps:
        parser.error("--starttls and --smtps exclude each other")
    if args.out:
        os.makedirs(args.out, exist_ok=True)

    smtp_options = {"server_hostname": "localhost", "ready_timeout": 10.0}
    controller_options = {}
    if args.starttls:
        smtp_options["tls_context"] = tls_context(args.cert, args.key)
    if args.smtps:
        controller_options["ssl_context"] = tls_context(args.cert, args.key)
    if args.auth_login:
        user, sep, password = args.auth_login.partition(":")
        if not sep:
            parser.error("--auth-login needs USER:PASSWORD")
        smtp_options["authenticator"] = make_authenticator(user, password)
        smtp_options["auth_exclude_mechanism"] = ["PLAIN"]
        # Over STARTTLS the server offers AUTH only once TLS is up; over
        # implicit TLS (and in the clear) it offers it from the start.
        smtp_options["auth_require_tls"] = args.starttls

    controller = FreePortController(Recorder(args.out), hostname="127.0.0.1", port=0,
                                    line_limit=args.line_limit or None,
                                    **controller_options, **smtp_options)
    controller.start()
    try:
        print("PORT %d" % controller.port, flush=True)
        stdin_closed = threading.Event()

        def watch_stdin():
            try:
                while sys.stdin.buffer.read(4096):
                    pass
            finally:
                stdin_closed.set()

        threading.Thread(target=watch_stdin, daemon=True).start()
        stdin_closed.wait(args.max_seconds)
    finally:
        controller.stop()
    return 0


if __name__ == "__main__":
    sys.exit(main())
