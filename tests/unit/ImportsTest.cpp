// The preload library sees every call that the unit's programs make to libc and that matters here.

#include <regex>

#include <gtest/gtest.h>

#include "Unit.h"

namespace {

// The functions of libc that a program imports, or those that the library defines.
std::set<std::string> Functions(const std::string& file, const char* which)
{
    const TempDir dir;
    Process list({{"sh", "-c",
                   "readelf --dyn-syms -W '" + Program(file) + "' | awk '$4 == \"FUNC\" && " +
                       which + " { sub(/@.*/, \"\", $8); print $8 }'"},
                  {},
                  "/",
                  dir.Path("names"),
                  ""});
    list.Wait();
    const Words names = Split(list.Output());
    return {names.begin(), names.end()};
}

}  // namespace

TEST(Imports, AreHookedOrHarmless)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer's runtime imports much more";
#endif
    const std::regex harmless(
        // neither files nor time
        "mem.*|str.*|is[a-z]+|to(lower|upper)|hton[ls]|ntoh[ls]|inet_pton|.*alloc|free|abort|get("
        "opt|text|pid).*|"
        "gmtime_r|__gmtime64_r|localeconv|pthread_mutex_.*|gai_strerror|"
        "__(errno_location|cxa_.*|libc_.*|tls_get_addr|assert_fail|aeabi_.*)|"
        // text for a stream, whose bytes are counted
        "(__)?v?[fs]?n?printf(_chk)?|f?put(s|c|char)|f?getc|fgets|fwrite|fflush|fclose|ferror|"
        "setvbuf|perror|"
        // an open descriptor, which is the machine's own
        "(__)?(fstat|fcntl|lseek|setsockopt|posix_fadvise)(64)?(_time64)?|fchmod|flock|isatty|"
        "inotify_.*|"
        // the process, and the checks that end it
        "__(fdelt|stack)_chk(_fail)?|signal|sig.*|umask|"
        // diagctl's names of hosts, its terminal, its files, which aren't the unit's, and the
        // browser
        "(get|free)addrinfo|getchar|dup|mkostemp(64)?|realpath|getenv|mallopt|readlink|"
        "posix_spawnp|waitpid");
    const std::set<std::string> hooks = Functions("libsimunit.so", "$7 != \"UND\"");
    ASSERT_GT(hooks.size(), 30U);
    for (const char* program : {"diag_server", "simpiano", "diagctl"}) {
        const std::set<std::string> imports = Functions(program, "/@GLIBC_/ && $7 == \"UND\"");
        ASSERT_GT(imports.size(), 30U) << program;
        for (const std::string& name : imports)
            EXPECT_TRUE(hooks.count(name) > 0 || std::regex_match(name, harmless))
                << program << " calls " << name << ", which the preload library doesn't see";
    }
}
