#include "Terminal.h"

#include <cstdio>
#include <string>

#ifdef Q_OS_WIN
#include <io.h>
#include <windows.h>
#else
#include <termios.h>
#include <unistd.h>
#endif

namespace send {

namespace {

int descriptor(Stream stream)
{
    switch (stream) {
    case StandardInput:
        return 0;
    case StandardOutput:
        return 1;
    case StandardError:
        return 2;
    }
    return -1;
}

// Turns echo off on standard input for its lifetime.
class EchoOff
{
public:
    EchoOff()
    {
#ifdef Q_OS_WIN
        m_handle = GetStdHandle(STD_INPUT_HANDLE);
        m_active = GetConsoleMode(m_handle, &m_mode) && SetConsoleMode(m_handle, m_mode & ~ENABLE_ECHO_INPUT);
#else
        if (tcgetattr(0, &m_saved) == 0) {
            termios quiet = m_saved;
            quiet.c_lflag &= ~tcflag_t(ECHO);
            m_active = tcsetattr(0, TCSAFLUSH, &quiet) == 0;
        }
#endif
    }
    ~EchoOff()
    {
        if (!m_active)
            return;
#ifdef Q_OS_WIN
        SetConsoleMode(m_handle, m_mode);
#else
        tcsetattr(0, TCSAFLUSH, &m_saved);
#endif
    }
    EchoOff(const EchoOff &) = delete;
    EchoOff &operator=(const EchoOff &) = delete;

private:
    bool m_active = false;
#ifdef Q_OS_WIN
    HANDLE m_handle;
    DWORD m_mode = 0;
#else
    termios m_saved{};
#endif
};

} // namespace

bool isTerminal(Stream stream)
{
#ifdef Q_OS_WIN
    return _isatty(descriptor(stream)) != 0;
#else
    return isatty(descriptor(stream)) != 0;
#endif
}

bool readHiddenLine(const QString &prompt, QString *line)
{
    std::fputs(prompt.toLocal8Bit().constData(), stderr);
    std::fflush(stderr);
    std::string bytes;
    bool complete = false;
    std::clearerr(stdin);  // a text read from the terminal before ended with end-of-file
    {
        EchoOff quiet;
        int c;
        while ((c = std::getchar()) != EOF) {
            if (c == '\n') {
                complete = true;
                break;
            }
            bytes.push_back(char(c));
        }
    }
    std::fputc('\n', stderr);
    if (!bytes.empty() && bytes.back() == '\r')
        bytes.pop_back();
    *line = QString::fromLocal8Bit(bytes.data(), int(bytes.size()));
    return complete || !bytes.empty();
}

} // namespace send
