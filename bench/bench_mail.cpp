// Throughput of the quoted-printable encoder, base64 of attachments and
// address parsing. Input text is made deterministically, so runs compare.
//
//   bench_mail --write-input FILE   writes the 10 MB encoder input and exits
//   bench_mail [benchmark options]  runs the benchmarks
#include <Quillet.h>

#include <benchmark/benchmark.h>

#include <QFile>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Mixed text: words, punctuation that needs escaping, some UTF-8 letters and
// line ends every 60 to 75 characters.
QByteArray mixedText(int size)
{
    static const char *const Words[] = {
        "lorem", "ipsum", "dolor", "sit", "amet,", "consectetur", "mail", "message",
        "the", "and", "of", "header", "body", "end.", "what?", "a=b", "Gr\xC3\xBC\xC3\x9F" "e",
        "caf\xC3\xA9", "na\xC3\xAFve", "\xE2\x82\xAC" "100", "K\xC3\xB6ln", "data", "text", "line"};
    const int wordCount = int(sizeof(Words) / sizeof(Words[0]));
    QByteArray text;
    text.reserve(size + 32);
    quint32 state = 12345;
    int column = 0;
    while (text.size() < size) {
        state = state * 1103515245u + 12345u;
        const char *word = Words[(state >> 16) % wordCount];
        text.append(word);
        column += int(std::strlen(word));
        if (column > 60 + int((state >> 8) % 16)) {
            text.append('\n');
            column = 0;
        } else {
            text.append(' ');
            ++column;
        }
    }
    text.truncate(size);
    return text;
}

// The 10 MB input comes from the file named by QUILLET_BENCH_INPUT when it is
// set (so that a reference encoder can read the very same bytes); the 1 MB
// input is its first megabyte.
QByteArray tenMegabytes()
{
    const QString path = qEnvironmentVariable("QUILLET_BENCH_INPUT");
    if (path.isEmpty())
        return mixedText(10000000);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "bench_mail: cannot read %s\n", qPrintable(path));
        std::exit(1);
    }
    return file.readAll();
}

const QByteArray &textOfSize(int size)
{
    static const QByteArray TenMB = tenMegabytes();
    static const QByteArray OneMB = TenMB.left(1000000);
    return size == 1000000 ? OneMB : TenMB;
}

void BM_QpEncode(benchmark::State &state)
{
    const QByteArray &input = textOfSize(int(state.range(0)));
    for (auto _ : state) {
        QByteArray data = input;
        benchmark::DoNotOptimize(encodeQuotedPrintable(data, 76));
        benchmark::DoNotOptimize(data.constData());
    }
    state.SetBytesProcessed(qint64(state.iterations()) * input.size());
}
BENCHMARK(BM_QpEncode)->Name("qp_encode/1MB")->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QpEncode)->Name("qp_encode/10MB")->Arg(10000000)->Unit(benchmark::kMillisecond);

void BM_Base64Attachment(benchmark::State &state)
{
    QByteArray attachment(10000000, '\0');
    quint32 x = 7;
    for (char &c : attachment) {
        x = x * 1664525u + 1013904223u;
        c = char(x >> 24);
    }
    oru::MimePart part(QStringLiteral("application/octet-stream"));
    part.content = attachment;
    for (auto _ : state) {
        const QByteArray encoded = part.content.toBase64();
        benchmark::DoNotOptimize(encoded.constData());
    }
    state.SetBytesProcessed(qint64(state.iterations()) * attachment.size());
}
BENCHMARK(BM_Base64Attachment)->Name("base64/10MB")->Unit(benchmark::kMillisecond);

void BM_ParseAddresses(benchmark::State &state)
{
    QStringList texts;
    texts.reserve(100000);
    qint64 bytes = 0;
    for (int i = 0; i < 100000; ++i) {
        const QString text = (i % 3 == 0)
            ? QStringLiteral("\"Person %1, Dept\" <person.%1@example.org>").arg(i)
            : (i % 3 == 1) ? QStringLiteral("Person%1 person%1@mail.example.com").arg(i)
                           : QStringLiteral("user%1@example.net").arg(i);
        bytes += text.toUtf8().size();
        texts.append(text);
    }
    for (auto _ : state) {
        const oru::MailAddressList list(texts);
        benchmark::DoNotOptimize(list.size());
    }
    state.SetBytesProcessed(qint64(state.iterations()) * bytes);
    state.counters["addresses/s"] = benchmark::Counter(double(texts.size()), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_ParseAddresses)->Name("parse/100000 addresses")->Unit(benchmark::kMillisecond);

int writeInput(const char *path)
{
    QFile file(QString::fromLocal8Bit(path));
    const QByteArray text = mixedText(10000000);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size()) {
        std::fprintf(stderr, "bench_mail: cannot write %s\n", path);
        return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 3 && std::strcmp(argv[1], "--write-input") == 0)
        return writeInput(argv[2]);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
