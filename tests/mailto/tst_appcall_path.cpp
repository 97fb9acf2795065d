// Finding a program's directory below "ProgramFiles" and "ProgramFiles(x86)".

#include "FakeProgram.h"
#include "mailto/AppCall.h"

#include <QTemporaryDir>
#include <QtTest>

using oru::AppCall;

class tst_AppCallPath : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { QDir::setCurrent(m_cwd); }
    void getPath_data();
    void getPath();
    void searchRunsOnce();

private:
    // Sets a variable to a value below the tree ("$T"); "-" unsets it.
    void setRoot(const char *name, QString value) const
    {
        value == "-" ? qunsetenv(name) : qputenv(name, QFile::encodeName(value.replace("$T", m_tree->path())));
    }
    QString m_cwd;
    QScopedPointer<QTemporaryDir> m_tree;
};

void tst_AppCallPath::init()
{
    m_cwd = QDir::currentPath();
    m_tree.reset(new QTemporaryDir);
    // The tree is the working directory, so that searching "" would show.
    QVERIFY(m_tree->isValid() && QDir::setCurrent(m_tree->path()));
}

void tst_AppCallPath::getPath_data()
{
    // Files below the tree: a leading "-" makes one not executable, a
    // trailing "/" makes a directory. "keep/" is the path before the search.
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("programFiles");
    QTest::addColumn<QString>("programFilesX86");
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("expected");

    const QString prog = "fakemail.exe";
    QTest::newRow("at the root") << QStringList{"pf/fakemail.exe"} << "$T/pf" << "-" << prog << "$T/pf/";
    QTest::newRow("three levels down") << QStringList{"pf/a/b/c/fakemail.exe"} << "$T/pf" << "-" << prog << "$T/pf/a/b/c/";
    QTest::newRow("four levels down is not found") << QStringList{"pf/a/b/c/d/fakemail.exe"} << "$T/pf" << "-" << prog
                                                   << "keep/";
    QTest::newRow("not executable") << QStringList{"-pf/fakemail.exe"} << "$T/pf" << "-" << prog << "keep/";
    QTest::newRow("a directory of that name") << QStringList{"pf/fakemail.exe/", "pf/a/fakemail.exe"} << "$T/pf" << "-"
                                              << prog << "$T/pf/a/";
    QTest::newRow("wildcards match") << QStringList{"pf/a/thunderbird"} << "$T/pf" << "-" << "thunder*" << "$T/pf/a/";
    QTest::newRow("relative root made absolute") << QStringList{"pf/fakemail.exe"} << "pf" << "-" << prog << "$T/pf/";
    QTest::newRow("ProgramFiles searched first") << QStringList{"one/fakemail.exe", "two/fakemail.exe"} << "$T/one"
                                                 << "$T/two" << prog << "$T/one/";
    QTest::newRow("then ProgramFiles(x86)") << QStringList{"one/other.exe", "two/fakemail.exe"} << "$T/one" << "$T/two"
                                            << prog << "$T/two/";
    QTest::newRow("(x86) cut off") << QStringList{"pf/fakemail.exe"} << "$T/pf (x86)" << "-" << prog << "$T/pf/";
    QTest::newRow("both 32-bit: native first") << QStringList{"pf/fakemail.exe", "pf (x86)/fakemail.exe"}
                                               << "$T/pf (x86)" << "$T/pf (x86)" << prog << "$T/pf/";
    QTest::newRow("both 32-bit: then as given") << QStringList{"pf/x.exe", "pf (x86)/fakemail.exe"} << "$T/pf (x86)"
                                                << "$T/pf (x86)" << prog << "$T/pf (x86)/";
    QTest::newRow("(x86) inside is kept") << QStringList{"pf/s/fakemail.exe", "pf (x86)/s/fakemail.exe"}
                                          << "$T/pf (x86)/s" << "-" << prog << "$T/pf (x86)/s/";
    QTest::newRow("(X86) is kept") << QStringList{"pf/fakemail.exe", "pf (X86)/fakemail.exe"} << "$T/pf (X86)" << "-"
                                   << prog << "$T/pf (X86)/";
    QTest::newRow("neither variable set") << QStringList{"fakemail.exe"} << "-" << "-" << prog << "keep/";
    QTest::newRow("empty variables") << QStringList{"fakemail.exe"} << "" << "" << prog << "keep/";
}

void tst_AppCallPath::getPath()
{
    QFETCH(QStringList, files);
    QFETCH(QString, programFiles);
    QFETCH(QString, programFilesX86);
    QFETCH(QString, program);
    QFETCH(QString, expected);

    for (QString file : files) {
        const bool executable = !file.startsWith('-');
        file = m_tree->filePath(file.mid(executable ? 0 : 1));
        QVERIFY(file.endsWith('/') ? QDir().mkpath(file) : fake::writeFile(file, "#!/bin/sh\n", executable));
    }
    setRoot("ProgramFiles", programFiles);
    setRoot("ProgramFiles(x86)", programFilesX86);

    const AppCall call(AppCall::eShellExec, program, "keep/", true, {});
    QCOMPARE(call.getPath(), expected.replace("$T", m_tree->path()));
    QCOMPARE(call.path, expected);
    QVERIFY(!call.searchPending);
}

void tst_AppCallPath::searchRunsOnce()
{
    const QString root = m_tree->filePath("pf");
    setRoot("ProgramFiles", root);
    setRoot("ProgramFiles(x86)", "-");
    QVERIFY(QDir().mkpath(root));

    const AppCall call(AppCall::eShellExec, "fakemail", "", true, {});
    QCOMPARE(call.getPath(), QString());
    // Appearing later changes nothing until a search is asked for again.
    QVERIFY(fake::writeFile(root + "/fakemail", "#!/bin/sh\n"));
    QCOMPARE(call.getPath(), QString());
    QVERIFY(!call.apply());
    call.searchPending = true;
    QCOMPARE(call.getPath(), root + '/');
    // A found path is kept without looking again.
    QVERIFY(QFile::remove(root + "/fakemail"));
    QCOMPARE(call.getPath(), root + '/');
}

QTEST_MAIN(tst_AppCallPath)
#include "tst_appcall_path.moc"
