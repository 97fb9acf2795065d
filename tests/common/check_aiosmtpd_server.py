#!/usr/bin/python3
"""Checks aiosmtpd_server.py with Python's own SMTP client.

AUTH LOGIN over STARTTLS and over implicit TLS: wrong credentials refused
with 535, right ones accepted with 235; a message and its envelope written
to the output directory; the server stopping when its stdin closes.
Prints "N passed, N failed".
"""

import json
import os
import smtplib
import ssl
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
SERVER = os.path.join(HERE, "aiosmtpd_server.py")
MESSAGE = b"Subject: check\r\n\r\nline one\r\n.starts with a dot\r\n"


def make_certificate(directory):
    cert = os.path.join(directory, "cert.pem")
    key = os.path.join(directory, "key.pem")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                    "-subj", "/CN=localhost", "-keyout", key, "-out", cert],
                   check=True, capture_output=True, timeout=60)
    return cert, key


def client_context():
    context = ssl.create_default_context()
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    return context


def run_case(mode, cert, key, out):
    server = subprocess.Popen([sys.executable, SERVER, mode, "--cert", cert, "--key", key,
                               "--auth-login", "joe:secret", "--out", out, "--max-seconds", "60"],
                              stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL)
    try:
        first = server.stdout.readline().decode()
        assert first.startswith("PORT "), "first line %r" % first
        port = int(first.split()[1])

        if mode == "--starttls":
            client = smtplib.SMTP("127.0.0.1", port, timeout=10)
            client.ehlo()
            assert client.has_extn("starttls"), "STARTTLS not offered"
            assert not client.has_extn("auth"), "AUTH offered before TLS"
            client.starttls(context=client_context())
        else:
            client = smtplib.SMTP_SSL("127.0.0.1", port, timeout=10, context=client_context())
        client.ehlo()
        assert client.esmtp_features.get("auth", "").split() == ["LOGIN"], client.esmtp_features

        client.user, client.password = "joe", "wrong"
        try:
            client.auth("LOGIN", client.auth_login, initial_response_ok=False)
            raise AssertionError("wrong password accepted")
        except smtplib.SMTPAuthenticationError as error:
            assert error.smtp_code == 535, error

        client.user, client.password = "joe", "secret"
        code, _ = client.auth("LOGIN", client.auth_login, initial_response_ok=False)
        assert code == 235, code

        refused = client.sendmail("a@example.org", ["b@example.org", "c@example.org"], MESSAGE)
        assert refused == {}, refused
        client.quit()

        with open(os.path.join(out, "msg-1.eml"), "rb") as f:
            stored = f.read()
        # smtplib stuffs the leading dot; the server takes it off again.
        assert stored == MESSAGE, stored
        with open(os.path.join(out, "msg-1.json"), encoding="utf-8") as f:
            envelope = json.load(f)
        assert envelope == {"mail_from": "a@example.org",
                            "rcpt_tos": ["b@example.org", "c@example.org"]}, envelope
    finally:
        server.stdin.close()
        try:
            code = server.wait(timeout=15)
        except subprocess.TimeoutExpired:
            server.kill()
            server.wait(timeout=5)
            raise AssertionError("the server did not stop when stdin closed")
    assert code == 0, "server exit code %s" % code


def main():
    passed = failed = 0
    with tempfile.TemporaryDirectory() as directory:
        cert, key = make_certificate(directory)
        for mode in ("--starttls", "--smtps"):
            try:
                run_case(mode, cert, key, os.path.join(directory, mode.strip("-")))
                print("PASS login over %s" % mode.strip("-"))
                passed += 1
            except Exception as error:  # report and go on with the next case
                print("FAIL login over %s: %r" % (mode.strip("-"), error))
                failed += 1
    print("%d passed, %d failed" % (passed, failed))
    return 0 if failed == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
