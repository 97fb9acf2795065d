"""Measures SMTP delivery of quillet-send against smtplib and curl.

Usage: smtp_bench.py BUILD_DIR SINK_PORT WORK_DIR

Run by bench/smtp, which builds the programs and starts the sink. Every
sender delivers the same message to the sink on 127.0.0.1; the sink's
counters confirm each delivery. Prints messages per second per sender (the
median of several rounds), the sink's own share of the CPU, the peak memory
of quillet-send with a 100 MB attachment, and as its last line

    smtp: quillet/smtplib = R1 (1 conn), R2 (20 jobs); quillet/curl = R3

for the small message. Exit status: 0 when all targets are met, 3 when a
ratio is below 1.0 or the memory exceeds 4 times the attachment, 1 when a
sender failed to deliver exactly what it was given.
"""
import os
import random
import socket
import statistics
import subprocess
import sys
import threading
import time

PYTHON = "/usr/bin/python3"
HERE = os.path.dirname(os.path.abspath(__file__))
ROUNDS = int(os.environ.get("SMTP_BENCH_ROUNDS", "5"))
COUNTS = {"small": int(os.environ.get("SMTP_BENCH_SMALL", "3000")),
          "medium": int(os.environ.get("SMTP_BENCH_MEDIUM", "400"))}
JOBS = 20
BIG_ATTACHMENT = 100 * 1000 * 1000
RUN_TIMEOUT = 300  # seconds for any one sender run


class Failure(Exception):
    pass


class Sink:
    """Talks to the sink's control commands over a short connection."""

    def __init__(self, port):
        self.port = port

    def _command(self, line):
        with socket.create_connection(("127.0.0.1", self.port), timeout=10) as s:
            f = s.makefile("rb")
            f.readline()  # greeting
            s.sendall(line.encode() + b"\r\nQUIT\r\n")
            reply = f.readline().decode().strip()
        if not reply.startswith("250 "):
            raise Failure("sink answered %r to %s" % (reply, line))
        return reply[4:]

    def stats(self):
        return {k: int(v) for k, v in (p.split("=") for p in self._command("XSTATS").split())}

    def capture_next(self, path):
        self._command("XCAPTURE " + path)


def make_inputs(work):
    """Texts and attachments for quillet-send; deterministic from run to run."""
    rng = random.Random(2024)
    words = ("delivery report message server client queue letter address subject "
             "reply greeting window summer budget meeting invoice travel").split()
    lines = []
    while sum(len(l) + 1 for l in lines) < 1000:
        lines.append(" ".join(rng.choice(words) for _ in range(rng.randint(8, 12))).capitalize() + ".")
    text = "\n".join(lines) + "\n"
    html = "<html><body>\n" + "".join("<p>%s</p>\n" % l for l in lines[:len(lines) * 4 // 5]) + "</body></html>\n"
    files = {
        "small.txt": text.encode(),
        "small.html": html.encode(),
        "medium.txt": b"The figures are attached.\n",
        "figures.bin": rng.randbytes(200 * 1000),
    }
    for name, data in files.items():
        with open(os.path.join(work, name), "wb") as f:
            f.write(data)
    with open(os.path.join(work, "big.bin"), "wb") as f:
        chunk = rng.randbytes(1000 * 1000)
        for _ in range(BIG_ATTACHMENT // len(chunk)):
            f.write(chunk)


def quillet_command(build, work, port, size, count, jobs):
    command = [os.path.join(build, "tools", "quillet-send"), "--server", "127.0.0.1",
               "--port", str(port), "--user", "bench", "--from", "bench@example.org",
               "--to", "sink@example.org", "--subject", "Delivery report",
               "--count", str(count), "--jobs", str(jobs)]
    w = lambda name: os.path.join(work, name)
    if size == "small":
        command += ["--text-file", w("small.txt"), "--html-file", w("small.html")]
    elif size == "medium":
        command += ["--text-file", w("medium.txt"), "--attach", w("figures.bin")]
    else:
        command += ["--text-file", w("medium.txt"), "--attach", w("big.bin")]
    return command


def curl_command(work, port, wire, count):
    """One curl process, one operation per message joined by "next", so that
    curl keeps its one connection for all of them."""
    config = os.path.join(work, "curl-%d.cfg" % count)
    block = ('url = "smtp://127.0.0.1:%d/bench.localhost"\nmail-from = "bench@example.org"\n'
             'mail-rcpt = "sink@example.org"\nupload-file = "%s"\nuser = "bench:secret"\n'
             'max-time = 60\n' % (port, wire))
    with open(config, "w") as f:
        f.write("next\n".join([block] * count))
    return ["curl", "--silent", "--show-error", "--fail-early", "--config", config]


def run_timed(command, env=None):
    """Runs a command to its end; returns (seconds, peak RSS in KiB). The
    wait happens on a helper thread, so that nothing polls while a sender
    runs."""
    outcome = {}
    start = time.monotonic()
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.PIPE, env=env)

    def reap():
        outcome["error"] = process.stderr.read().decode(errors="replace")
        _, status, usage = os.wait4(process.pid, 0)
        outcome["end"] = time.monotonic()
        outcome["status"] = os.waitstatus_to_exitcode(status)
        outcome["rss"] = usage.ru_maxrss

    waiter = threading.Thread(target=reap)
    waiter.start()
    waiter.join(RUN_TIMEOUT)
    if waiter.is_alive():
        process.kill()
        waiter.join()
        raise Failure("%s: no end after %d s" % (command[0], RUN_TIMEOUT))
    process.stderr.close()
    process.returncode = outcome["status"]
    if outcome["status"] != 0:
        raise Failure("%s exited with %d: %s" % (os.path.basename(command[0]), outcome["status"],
                                                 outcome["error"].strip()[-500:]))
    return outcome["end"] - start, outcome["rss"]


def deliver(sink, name, command, count, connections, wire_size, exact, env=None):
    """Runs one sender and checks at the sink that it delivered count
    messages over connections connections. Returns (seconds, sink CPU share)."""
    before = sink.stats()
    seconds, _ = run_timed(command, env)
    after = sink.stats()
    delta = {k: after[k] - before[k] for k in after}
    if delta["messages"] != count:
        raise Failure("%s: the sink received %d messages, not %d" % (name, delta["messages"], count))
    if delta["mail-connections"] != connections:
        raise Failure("%s: the messages came over %d connections, not %d"
                      % (name, delta["mail-connections"], connections))
    expected = count * wire_size
    # quillet-send's own copies differ in boundary lengths; the others send
    # the captured bytes as they are.
    if (exact and delta["bytes"] != expected) or abs(delta["bytes"] - expected) > expected * 0.05:
        raise Failure("%s: the sink received %d bytes, expected %d" % (name, delta["bytes"], expected))
    return seconds, delta["cpu-ms"] / 1000.0 / seconds


def capture(sink, build, work, port, size, env):
    """The wire bytes of quillet-send's message, for the other senders."""
    path = os.path.join(work, "%s.eml" % size)
    sink.capture_next(path)
    run_timed(quillet_command(build, work, port, size, 1, 1), env)
    deadline = time.monotonic() + 30
    while not os.path.exists(path):
        if time.monotonic() > deadline:
            raise Failure("the sink wrote no copy of the %s message" % size)
        time.sleep(0.01)
    return path


def senders(build, work, port, size, wire):
    """(name, command for a count, connections) of every sender."""
    sink_bin = os.path.join(build, "bench", "smtp_sink")
    smtplib = os.path.join(HERE, "smtp_smtplib.py")
    return [
        ("quillet-send, 1 conn", lambda n: quillet_command(build, work, port, size, n, 1), 1),
        ("quillet-send, %d jobs" % JOBS, lambda n: quillet_command(build, work, port, size, n, JOBS), JOBS),
        ("smtplib, 1 conn", lambda n: [PYTHON, smtplib, str(port), str(n), "1", wire], 1),
        ("smtplib, %d threads" % JOBS, lambda n: [PYTHON, smtplib, str(port), str(n), str(JOBS), wire], JOBS),
        ("curl, 1 conn", lambda n: curl_command(work, port, wire, n), 1),
        ("raw client, 1 conn", lambda n: [sink_bin, "--blast", str(port), "--message", wire, "--count", str(n)], 1),
        ("raw client, %d conns" % JOBS,
         lambda n: [sink_bin, "--blast", str(port), "--message", wire, "--count", str(n),
                    "--connections", str(JOBS)], JOBS),
    ]


def measure_size(sink, build, work, port, size, env):
    """Rates of every sender for one message: whole runs of n messages, and
    the sending alone, taken as the difference to a run of one message per
    connection (start-up, login and exit cost the same in both)."""
    wire = capture(sink, build, work, port, size, env)
    wire_size = os.path.getsize(wire)
    n = COUNTS[size]
    all_senders = senders(build, work, port, size, wire)
    full = {name: [] for name, _, _ in all_senders}
    short = {name: [] for name, _, _ in all_senders}
    sink_share = 0.0
    for r in range(ROUNDS):
        # Each round starts with another sender, so that drifting load on
        # the machine does not always hit the same one.
        order = all_senders[r % len(all_senders):] + all_senders[:r % len(all_senders)]
        for name, command, connections in order:
            exact = not name.startswith("quillet")
            seconds, share = deliver(sink, name, command(n), n, connections, wire_size, exact, env)
            full[name].append(seconds)
            if not name.startswith("raw"):
                sink_share = max(sink_share, share)
            seconds, _ = deliver(sink, name, command(connections), connections, connections, wire_size,
                                 exact, env)
            short[name].append(seconds)
    rates = {}
    for name, _, connections in all_senders:
        whole = statistics.median(full[name])
        sending = whole - statistics.median(short[name])
        rates[name] = (n / whole, (n - connections) / sending if sending > 0 else float("inf"),
                       n / max(full[name]), n / min(full[name]))
    return wire_size, rates, sink_share


def measure_memory(sink, build, work, port, env):
    wire = os.path.join(work, "big.eml")
    sink.capture_next(wire)
    before = sink.stats()
    _, rss_kib = run_timed(quillet_command(build, work, port, "big", 1, 1), env)
    if sink.stats()["messages"] - before["messages"] != 1:
        raise Failure("the 100 MB message did not arrive")
    deadline = time.monotonic() + 60
    while not os.path.exists(wire):
        if time.monotonic() > deadline:
            raise Failure("the sink wrote no copy of the 100 MB message")
        time.sleep(0.05)
    longest = 0
    with open(wire, "rb") as f:
        for line in f:
            longest = max(longest, len(line.rstrip(b"\r\n")))
    os.remove(wire)
    return rss_kib * 1024, longest


def main():
    build, port, work = sys.argv[1], int(sys.argv[2]), sys.argv[3]
    sink = Sink(port)
    env = dict(os.environ, QUILLET_PASSWORD="secret")
    make_inputs(work)

    results = {}
    for size in ("small", "medium"):
        results[size] = measure_size(sink, build, work, port, size, env)
    rss, longest = measure_memory(sink, build, work, port, env)

    cpu = "unknown"
    with open("/proc/cpuinfo") as f:
        for line in f:
            if line.startswith("model name"):
                cpu = line.split(":", 1)[1].strip()
                break
    print("machine: %d CPUs (nproc), %s, load average %.1f" % (os.cpu_count(), cpu, os.getloadavg()[0]))
    print("messages per second, median of %d rounds; msg/s counts the whole process (start-up, login,"
          % ROUNDS)
    print("sending, exit), sending only leaves out what a run of one message per connection costs")
    ratios = {}
    for size, (wire_size, rates, sink_share) in results.items():
        print("%s message: %d bytes on the wire, %d messages per run" % (size, wire_size, COUNTS[size]))
        print("  %-24s %10s %14s %20s" % ("sender", "msg/s", "sending only", "rounds (whole run)"))
        for name, (rate, sending, low, high) in rates.items():
            print("  %-24s %10.1f %14.1f %10.0f to %.0f" % (name, rate, sending, low, high))
        print("  sink CPU: at most %.0f%% of one core during any sender's run" % (100 * sink_share))
        rate = {name: r[0] for name, r in rates.items()}
        q1, qj = rate["quillet-send, 1 conn"], rate["quillet-send, %d jobs" % JOBS]
        ratios[size] = (q1 / rate["smtplib, 1 conn"], qj / rate["smtplib, %d threads" % JOBS],
                        q1 / rate["curl, 1 conn"])
    memory_ratio = rss / BIG_ATTACHMENT
    print("memory: quillet-send with a %d-byte attachment peaks at %.1f MB resident, %.2f times the attachment"
          % (BIG_ATTACHMENT, rss / 1e6, memory_ratio))
    expected_line = (BIG_ATTACHMENT + 2) // 3 * 4
    print("  longest wire line %d characters (the attachment's base64 is %d)" % (longest, expected_line))
    missed = [size for size, r in ratios.items() if min(r) < 1.0]
    if memory_ratio > 4.0:
        missed.append("memory")
    if longest != expected_line:
        raise Failure("the attachment did not go out as one base64 line")
    if missed:
        print("below target: " + ", ".join(missed))
    for size in ("medium", "small"):
        r = ratios[size]
        print("%s: quillet/smtplib = %.2f (1 conn), %.2f (%d jobs); quillet/curl = %.2f"
              % ("smtp" if size == "small" else "smtp medium", r[0], r[1], JOBS, r[2]))
    return 3 if missed else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except (Failure, OSError) as failure:
        sys.exit("smtp: FAILED: %s" % failure)
