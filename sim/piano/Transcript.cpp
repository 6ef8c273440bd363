#include "Transcript.h"

#include "Hex.h"

#include <chrono>
#include <cstdio>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

bool Transcript::Open(const std::string& path)
{
    file = Descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    return file && flock(file.Get(), LOCK_EX | LOCK_NB) == 0;
}

void Transcript::Note(const std::string& text)
{
    using namespace std::chrono;
    const long long now =
        duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    char stamp[40];
    std::snprintf(stamp, sizeof(stamp), "%lld.%06lld ", now / 1000000, now % 1000000);

    std::string line = stamp;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7F)
            line += c;
        else
            line += "\\x" + Hex(byte, 2);
    }
    line += '\n';
    if (write(file.Get(), line.data(), line.size()) < 0)
        std::perror("simpiano: midi.log");
}

void Transcript::Bad(const std::string& text)
{
    ++badCount;
    Note("bad " + text);
}
