"""Sends one prepared message N times with Python's smtplib.

Usage: smtp_smtplib.py PORT COUNT CONNECTIONS MESSAGE_FILE

Each connection runs on a thread of its own, logs in once (the sink accepts
any name) and sends its share of the copies with sendmail(). Prints nothing
on success; exits with 1 and a message when any copy is refused.
"""
import smtplib
import sys
import threading


def send_share(port, count, message, errors):
    try:
        with smtplib.SMTP("127.0.0.1", port, timeout=60) as smtp:
            smtp.login("bench", "secret")
            for _ in range(count):
                refused = smtp.sendmail("bench@example.org", ["sink@example.org"], message)
                if refused:
                    raise smtplib.SMTPException("refused: %r" % (refused,))
    except Exception as error:  # reported by the main thread
        errors.append(repr(error))


def main():
    port, count, connections = (int(arg) for arg in sys.argv[1:4])
    with open(sys.argv[4], "rb") as f:
        message = f.read()
    connections = max(1, min(connections, count))
    errors = []
    threads = [
        threading.Thread(
            target=send_share,
            args=(port, count // connections + (1 if i < count % connections else 0), message, errors),
        )
        for i in range(connections)
    ]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    if errors:
        sys.exit("smtp_smtplib: " + "; ".join(errors))


if __name__ == "__main__":
    main()
