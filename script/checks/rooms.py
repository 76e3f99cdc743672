#!/usr/bin/env python3
"""Checks the walls between the rooms: what each may include, and which calls it may make; and that
the table of rooms in docs/architecture.md says the same.

usage: rooms.py REPOSITORY
       rooms.py --self-test
"""
import re

import tree

THREADS = {"thread", "mutex", "shared_mutex", "condition_variable", "future", "stop_token",
           "semaphore", "barrier", "latch"}
TIME = {"chrono", "ctime", "random"}
STREAMS = {"iostream", "fstream", "filesystem", "syncstream", "print"}
STANDARD = {
    "algorithm", "any", "array", "atomic", "bit", "bitset", "cctype", "cerrno", "charconv",
    "climits", "cmath", "compare", "concepts", "csignal", "cstdarg", "cstddef", "cstdint", "cstdio",
    "cstdlib", "cstring", "deque", "exception", "expected", "functional", "initializer_list",
    "iomanip", "iterator", "limits", "list", "locale", "map", "memory", "new", "numbers", "numeric",
    "optional", "ostream", "istream", "queue", "ranges", "ratio", "set", "source_location", "span",
    "sstream", "stack", "stdexcept", "streambuf", "string", "string_view", "system_error", "tuple",
    "type_traits", "typeindex", "typeinfo", "unordered_map", "unordered_set", "utility", "valarray",
    "variant", "vector", "version"} | THREADS | TIME | STREAMS
SYSTEM_OF_CORE = {"csignal", "atomic", "locale", "iomanip"} | THREADS | TIME | STREAMS

# A call has an operator, a bracket or a keyword before it; a declaration has a type.
BEFORE_CALL = r"(?:(?<=[=(),;{}!?:|<+\[/-])|(?<=&&)|(?<=\breturn)|(?<=\belse)|(?<=\bdo)|^)\s*"
ANY_CALL = BEFORE_CALL + r"(?<![\w.>:~])(?:std\s*::\s*|::\s*)?(?:%s)\s*\("
QUALIFIED_CALL = BEFORE_CALL + r"(?<![\w.>:~])(?:std\s*::\s*|::\s*)(?:%s)\s*\("
TIME_CALLS = ("reads the time or waits; time is handed in", ANY_CALL %
              "gettimeofday|clock_gettime|localtime|gmtime|sleep|usleep|nanosleep"
              + r"|\btime\s*\(\s*(?:nullptr|NULL|0|&\w+)\s*\)"
              + "|" + QUALIFIED_CALL % "time|clock|alarm" + r"|\bstd\s*::\s*chrono\b")
THREAD_USE = ("uses a thread or lock of its own; queues and locks are handed in",
              r"\bstd\s*::\s*(?:jthread|thread|async|(?:recursive_|shared_|timed_)*mutex|lock_guard"
              r"|unique_lock|scoped_lock|condition_variable\w*|this_thread)\b|\bthread_local\b")
CHANCE = ("draws random numbers; chance is handed in",
          ANY_CALL % "rand|srand|drand48"
          + r"|\bstd\s*::\s*(?:random_device|default_random_engine|\w+_distribution)\b")
PRINTING = ("prints; texts go to the log or the journal",
            ANY_CALL % "printf|fprintf|puts|putchar|perror|vprintf"
            + r"|\bstd\s*::\s*(?:cout|cerr|clog)\b")
NAKED_NEW = ("owns memory by hand; use make_unique, make_shared or a container",
             r"\bnew\s+[\w:(]|\bdelete\s+[\w*(]|\bdelete\s*\[\]|"
             + ANY_CALL % "malloc|calloc|realloc|free")
SYSTEM_CALLS = ("calls the system past the seam",
                ANY_CALL % "getenv|setenv|popen|fork|execv|execve|sigaction|_exit|quick_exit|fopen"
                + "|" + QUALIFIED_CALL % "system|kill|raise|signal|getpid|exit|open|read|write|close"
                "|unlink|chmod|mkdir|umask|fsync|rename|socket|dlopen|dlsym")
# An object whose constructor is private can be owned only in this way.
OWNED_AT_ONCE = re.compile(r"\b((?:unique|shared)_ptr<[^;{}()]*>\s*\w*\s*[({]\s*)new\b")
CATCH_ALL = ("catches everything; a killed process unwinds through here",
             r"\bcatch\s*\(\s*\.\.\.\s*\)")
LINUX_ALONE = ("is Linux's alone; VirtualMac/Remote/HostSystem.h is the door to the system",
               r"\b(?:SOCK_(?:CLOEXEC|NONBLOCK)|MSG_CMSG_CLOEXEC|SO_PEERCRED|ucred|pipe2|accept4|environ"
               r"|epoll_\w+|(?:event|signal|timer|pid)fd(?:_\w+)?|memfd_create|prctl|gettid|getrandom"
               r"|ppoll|close_range|posix_spawn_file_actions_addclosefrom_np"
               r"|program_invocation_name)\b")

CORE_CALLS = (TIME_CALLS, THREAD_USE, CHANCE, PRINTING, NAKED_NEW, SYSTEM_CALLS, CATCH_ALL)
MODEL_CALLS = (TIME_CALLS, THREAD_USE, CHANCE, PRINTING, NAKED_NEW)
FEW_CALLS = (CHANCE, NAKED_NEW)
PORTABLE = (LINUX_ALONE,)  # These rooms are built for a Mac as well.


LIBRARIES = {"nlohmann/": "nlohmann/json", "asio/": "Asio", "fmt/": "{fmt}", "CLI/": "CLI11",
             "yaml-cpp/": "yaml-cpp", "plist/": "libplist", "gtest/": "GoogleTest", "gmock/": "GoogleMock",
             "rapidcheck/": "RapidCheck", "rapidcheck.h/": "RapidCheck",
             "benchmark/": "Google Benchmark", "httplib.h/": "cpp-httplib"}


class Room:
    """`own`: prefixes of quoted includes; `libraries`: folders of angled ones, of LIBRARIES;
    `banned`: standard headers that are not allowed all the same; `calls`: calls that are not;
    `system`: the system's headers are allowed; `helper_root`: those of the helper itself are."""

    def __init__(self, folder, own, libraries=(), banned=frozenset(), calls=(), system=False,
                 helper_root=True):
        self.folder, self.own, self.libraries, self.banned = folder, own, libraries, banned
        self.calls, self.system, self.helper_root = calls, system, helper_root

    def allows(self, name, angled):
        if ".." in name.split("/"):
            return False
        if not angled:
            return any(name.startswith(prefix) for prefix in self.own) or (
                self.helper_root and "/" not in name)
        if name in STANDARD:
            return name not in self.banned
        library = name.split("/")[0] + "/"
        return library in self.libraries if library in LIBRARIES else self.system

    def reach(self):
        """What may be included, as the table of rooms in docs/architecture.md says it."""
        names, files = [], {}
        for prefix in self.own:
            if self.folder.endswith(prefix):
                continue
            parts = re.sub("^(VirtualMac|TinMac)/", "", prefix).removesuffix(".h").split("/")
            if parts[1]:
                files.setdefault(parts[0], []).append(parts[1])
            else:
                names.append(parts[0])
        names += [f"{room} ({' '.join(some)})" for room, some in files.items()]
        if self.helper_root and self.folder != "KorvelHelper/":
            names.append("the helper")
        names += [LIBRARIES[library] for library in self.libraries]
        names += ["the system"] if self.system else []
        return ", ".join(names) or "the standard library"


SEAM = ("Base/", "Platform/")
MODEL = SEAM + ("VirtualMac/Schedule/", "VirtualMac/Machine/")
SERVER = MODEL + ("VirtualMac/Remote/", "VirtualMac/Server/")
SCENARIOS = SERVER + ("VirtualMac/InProcess/", "VirtualMac/Timeline/", "VirtualMac/Scenarios/")
ALL_VIRTUAL = SEAM + ("VirtualMac/",)
ANY_LIBRARY = tuple(LIBRARIES)
ROOMS = [  # The first that matches a file is its room.
    Room("KorvelHelper/Base/", ("Base/",), banned=SYSTEM_OF_CORE, calls=CORE_CALLS,
         helper_root=False),
    Room("KorvelHelper/Platform/", SEAM, banned=SYSTEM_OF_CORE, calls=CORE_CALLS,
         helper_root=False),
    Room("KorvelHelper/macOS/", SEAM + ("macOS/",), system=True),
    Room("KorvelHelper/", SEAM, ("nlohmann/",), SYSTEM_OF_CORE, CORE_CALLS),
    Room("VirtualMac/Schedule/", SEAM + ("VirtualMac/Schedule/",), banned=TIME - {"random"},
         calls=FEW_CALLS + (TIME_CALLS, PRINTING), helper_root=False),
    Room("VirtualMac/Machine/", SEAM + ("VirtualMac/Machine/", "VirtualMac/Schedule/Journal.h",
                                        "VirtualMac/Schedule/SeamCall.h",
                                        "VirtualMac/Schedule/Random.h",
                                        "VirtualMac/Schedule/VirtualTime.h"),
         ("nlohmann/",), THREADS | TIME - {"random"}, MODEL_CALLS, helper_root=False),
    Room("VirtualMac/InProcess/", MODEL + ("VirtualMac/InProcess/",), banned=TIME - {"random"},
         calls=FEW_CALLS + (TIME_CALLS,)),
    Room("VirtualMac/Remote/", MODEL + ("VirtualMac/Remote/",), ("asio/",),
         calls=FEW_CALLS + PORTABLE, system=True),
    Room("VirtualMac/Timeline/", SEAM + ("VirtualMac/Schedule/", "VirtualMac/Timeline/"),
         ("fmt/",), calls=MODEL_CALLS + PORTABLE, helper_root=False),
    Room("VirtualMac/Server/", SERVER, ("asio/", "fmt/", "nlohmann/"), calls=FEW_CALLS + PORTABLE,
         system=True),
    Room("VirtualMac/Scenarios/", SCENARIOS, ("asio/", "fmt/", "nlohmann/", "yaml-cpp/"),
         calls=FEW_CALLS + PORTABLE, system=True),
    Room("VirtualMac/Viewer/", ("VirtualMac/Viewer/",), ("nlohmann/",), THREADS | TIME,
         MODEL_CALLS + PORTABLE, helper_root=False),
    Room("VirtualMac/Web/", SERVER + ("VirtualMac/Viewer/", "VirtualMac/Web/"),
         ("asio/", "httplib.h/", "nlohmann/"), calls=FEW_CALLS + PORTABLE, system=True,
         helper_root=False),
    Room("VirtualMac/Tools/", SCENARIOS + ("VirtualMac/Viewer/", "VirtualMac/Web/",
                                           "VirtualMac/Tools/", "macOS/CFReference.h",
                                           "macOS/PropertyConversion.h"),
         ("asio/", "CLI/", "fmt/", "plist/", "nlohmann/"), calls=FEW_CALLS + PORTABLE, system=True),
    # The frameworks know the rooms below them by C functions, and those rooms one another not at all.
    Room("TinMac/Loader/", ("TinMac/Loader/",), system=True, helper_root=False),
    Room("TinMac/System/", ("TinMac/System/", "TinMac/Frameworks/Below.h"), ("nlohmann/",),
         system=True, helper_root=False),
    Room("TinMac/Frameworks/", ("TinMac/Frameworks/",), system=True, helper_root=False),
    Room("TinMac/Glue/", MODEL + ("VirtualMac/Remote/", "VirtualMac/Tools/LaunchArguments.h",
                                  "TinMac/Loader/", "TinMac/System/", "TinMac/Frameworks/",
                                  "TinMac/Glue/"), ("asio/", "CLI/"), system=True),
    Room("Tests/tin/adapters/", SEAM + ("Tests/", "macOS/"), ANY_LIBRARY, system=True),
    Room("Tests/tin/", ("TinMac/", "Tests/"), ANY_LIBRARY, system=True, helper_root=False),
    # The tests of the real processes see the programs only from outside.
    Room("Tests/process/", ("Tests/process/", "VirtualMac/Remote/", "VirtualMac/Schedule/"),
         ANY_LIBRARY, system=True, helper_root=False, calls=PORTABLE),
    Room("Tests/macos/", ALL_VIRTUAL + ("Tests/", "macOS/"), ANY_LIBRARY, system=True,
         calls=PORTABLE),
    Room("Tests/files/", ALL_VIRTUAL + ("Tests/", "macOS/"), ANY_LIBRARY, system=True,
         calls=PORTABLE),
    # The second opinion must not know the program.
    Room("Tests/model/reference/", ("Tests/model/reference/",), ("nlohmann/",), banned=SYSTEM_OF_CORE,
         calls=CORE_CALLS, helper_root=False),
    Room("Tests/", ALL_VIRTUAL + ("Tests/",), ANY_LIBRARY, system=True,
         calls=(CHANCE,) + PORTABLE),
    Room("Benchmarks/", ALL_VIRTUAL + ("Benchmarks/", "Tests/"), ANY_LIBRARY, system=True, calls=(CHANCE,)),
    Room("Packaging/samples/cpp/", SEAM + ("VirtualMac/Tools/",)),
    # The Mac's client names the states of the helper in the virtual client's words.
    Room("Packaging/", SEAM + ("VirtualMac/Tools/DoctorStates.def",), system=True),
]
# Each of these files is its room's only access to the resource that the others must not touch.
SANCTIONED = {
    ("KorvelHelper/Base/Trap.cpp", PRINTING[0]),   # a trap's text must reach somebody
    ("KorvelHelper/Base/Trap.cpp", SYSTEM_CALLS[0]),
    ("VirtualMac/Remote/HostSystemLinux.cpp", LINUX_ALONE[0]),
    ("VirtualMac/Tools/PropertyListTextLinux.cpp", NAKED_NEW[0]),  # its library gives C's memory away
}


DOCUMENT = "docs/architecture.md"
DOCUMENTED = ("KorvelHelper/", "VirtualMac/", "TinMac/", "Tests/model/")  # The table has a row for each of these rooms.


def room_of(name):
    return next((room for room in ROOMS if name.startswith(room.folder)), None)


def table_findings(root):
    """The rows of the document's table of rooms against the rules here, if there is a document."""
    if not (root / DOCUMENT).is_file():
        return
    rows = dict(re.findall(r"^\| `((?:KorvelHelper|VirtualMac|TinMac|Tests/model)[\w/]*)` \|[^|]*\| ([^|]*) \|$",
                           tree.read(root, DOCUMENT), re.M))
    reaches = {room.folder.rstrip("/"): room.reach() for room in ROOMS
               if room.folder.startswith(DOCUMENTED)}
    for name in sorted(rows.keys() | reaches.keys()):
        if name not in reaches:
            yield f"{DOCUMENT}: {name} has a row and no rule"
        elif rows.get(name) != reaches[name]:
            yield f"{DOCUMENT}: {name} may include: {reaches[name]}"


def is_neighbour(root, name, included):
    """A file beside the including one, or below it, which is thus in the same room."""
    return ".." not in included.split("/") and ((root / name).parent / included).is_file()


def check(root):
    found = list(table_findings(root))
    for name in tree.files(root):
        room = room_of(name)
        if room is None:
            found.append(f"{name}: is in no room")
            continue
        text = tree.read(root, name)
        code = OWNED_AT_ONCE.sub(r"\1   ", tree.blanked(text))
        for line, included, angled in tree.includes(text):
            neighbour = not angled and is_neighbour(root, name, included)
            if not neighbour and not room.allows(included, angled):
                found.append(f"{name}:{line}: {room.folder} must not include {included}")
        for why, pattern in room.calls:
            if (name, why) in SANCTIONED:
                continue
            for match in re.finditer(pattern, code, re.M):
                line = tree.line_of(code, match.end())
                found.append(f"{name}:{line}: \"{match.group(0).strip()}\" {why}")
    return found


def self_test():
    core, machine = "KorvelHelper/A.cpp", "VirtualMac/Machine/M.cpp"
    tree.expect(check, {
        core: '#include "Base/Date.h"\n#include <vector>\n#include <nlohmann/json.hpp>\n'
              '// time(nullptr) in a comment\nauto t = "std::thread"; int x = files.open(1);\n'
              "void X::close(int) {}\nint timer(int runtime(int));\n"
              "auto u = std::unique_ptr<A>(new A(1));\nstd::unique_ptr<B> v(new B);\n",
        machine: '#include "VirtualMac/Schedule/Journal.h"\n#include <map>\n',
        "Tests/seam/s.cpp": '#include "contract/c.h"\n', "Tests/seam/contract/c.h": "",
        "VirtualMac/Remote/HostSystemLinux.cpp": "ucred credentials{};\n",
        "Tests/process/p.cpp": "#include <unistd.h>\n#include <gtest/gtest.h>\n"
                               "// no pipe2 here\nauto e = environment();\n"})
    for text, word in [
            ('#include "VirtualMac/Machine/Machine.h"', "must not include VirtualMac"),
            ('#include "macOS/Main.h"', "must not include macOS"),
            ('#include "Tests/A.h"', "must not include Tests"),
            ("#include <unistd.h>", "must not include unistd.h"),
            ("#include <thread>", "must not include thread"),
            ('#include "../Base/Date.h"', "must not include .."),
            ("auto t = time(nullptr);", "reads the time"), ("sleep(1);", "reads the time"),
            ("std::mutex m;", "a thread or lock"), ("int r = std::rand();", "random"),
            ('std::printf("x");', "prints"), ("auto* p = new Thing();", "memory by hand"),
            ("std::exit(0);", "past the seam"), ("int d = ::open(p, 0);", "past the seam"),
            ("try {} catch (...) {}", "catches everything")]:
        tree.expect(check, {core: text + "\n"}, word)
    tree.expect(check, {"KorvelHelper/Base/B.h": '#include "SMCWriter.h"\n'}, "must not include")
    tree.expect(check, {"KorvelHelper/Platform/P.h": '#include "Logger.h"\n'}, "must not include")
    tree.expect(check, {"KorvelHelper/macOS/M.mm": '#include "VirtualMac/M.h"\n'},
                "must not include")
    tree.expect(check, {machine: "#include <mutex>\n#include <chrono>\nstd::thread t;\n"},
                "include mutex", "include chrono", "a thread or lock")
    tree.expect(check, {machine: '#include "VirtualMac/InProcess/World.h"\n'}, "must not include")
    for name in ("Schedule", "InProcess", "Remote"):
        tree.expect(check, {f"VirtualMac/{name}/A.cpp": "#include <nlohmann/json.hpp>\n"},
                    "must not include")
    tree.expect(check, {"VirtualMac/Remote/R.cpp": '#include "VirtualMac/InProcess/World.h"\n'},
                "must not include")
    tree.expect(check, {"Tests/process/p.cpp": '#include "HelperImpl.h"\n'}, "must not include")
    for folder in ("Tests/process/", "Tests/seam/", "Tests/files/", "VirtualMac/Remote/",
                   "VirtualMac/Tools/"):
        tree.expect(check, {folder + "a.cpp": "int s = ::socket(AF_UNIX, SOCK_CLOEXEC, 0);\n"},
                    "Linux's alone")
    for lower, upper in [("Schedule", "Machine"), ("Timeline", "Machine"), ("Server", "Scenarios"),
                         ("Server", "InProcess"), ("Scenarios", "Tools"), ("Machine", "Remote")]:
        tree.expect(check, {f"VirtualMac/{lower}/a.cpp": f'#include "VirtualMac/{upper}/b.h"\n'},
                    "must not include")
    tree.expect(check, {"VirtualMac/Server/a.cpp": "#include <yaml-cpp/yaml.h>\n"},
                "must not include yaml-cpp")
    tree.expect(check, {"VirtualMac/Attic/a.cpp": ""}, "is in no room")
    rows = "".join(f"| `{room.folder.rstrip('/')}` | x | {room.reach()} |\n" for room in ROOMS
                   if room.folder.startswith(DOCUMENTED))
    tree.expect(check, {DOCUMENT: rows})
    tree.expect(check, {DOCUMENT: rows.replace("yaml-cpp", "Qt") + "| `VirtualMac/Attic` | x | y |\n"},
                "Attic has a row and no rule", "VirtualMac/Scenarios may include")
    tree.expect(check, {"Tests/process/p.cpp": "if (::pipe2(ends, 0)) run(environ);\n"},
                '"pipe2" is Linux', '"environ" is Linux')


if __name__ == "__main__":
    tree.run(__doc__, self_test, check, "C++ files", "every include and call is allowed in its room",
             lambda root: len(tree.files(root)))
