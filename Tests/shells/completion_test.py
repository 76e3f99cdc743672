#!/usr/bin/env python3
"""Lets a real shell complete command lines of the virtual Mac's programs, with the script that each
program prints for it.

usage: completion_test.py SHELL PROGRAMS
"""
import os
import pathlib
import pty
import select
import shlex
import subprocess
import sys
import tempfile
import time
import unittest

PATIENCE = 60  # Seconds; the computer may be busy.

# Each line as it is typed, with the words that may stand in the place of its last one.
CASES = {
    "virtual-mac fau": ["fault"],
    "virtual-mac fault smc-si": ["smc-silent-refusal", "smc-size"],
    "virtual-mac fault lid-unknown o": ["off", "on"],
    "virtual-mac fault smc-result CHT": ["CHTE"],
    "virtual-mac set li": ["lid"],
    "virtual-mac set lid c": ["closed"],
    "virtual-mac kill TE": ["TERM"],
    "virtual-mac up --spe": ["--speed"],
    "virtual-mac up --profile desk": ["desktop"],
    "virtual-mac journal --kinds pow": ["power"],
    "virtual-mac --root fold": ["folder/"],
    "virtual-mac profile im": ["import"],
    "virtual-mac run sto": ["story.yaml"],
    "virtual-mac completion z": ["zsh"],
    "virtual-mac --json launch --as ad-": ["ad-hoc"],
    "korvel-app set-l": ["set-limit"],
    "korvel-app discharge of": ["off"],
    "korvel-app session --reconnect ne": ["never"],
    "korvel-app --as ad-": ["ad-hoc"],
    "korvel-app nonsense": [],
}
# A shell's own word: bash cuts it in three, and completes the third.
JOINED = "virtual-mac up --profile=desk"


def run(words, place):
    done = subprocess.run(words, cwd=place, capture_output=True, text=True, timeout=PATIENCE)
    assert done.returncode == 0 and not done.stderr, (words, done)
    return done.stdout


class Bash:
    joined = "desktop"

    def stop(self):
        pass

    def complete(self, line, place):
        words = " ".join(line.replace("=", " = ").split(" "))
        program = line.split()[0]
        script = (f"source <({program} completion bash) && "
                  f"COMP_WORDS=({words}) COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1)) && "
                  f"read -r -a told <<<\"$(complete -p {program})\" && \"${{told[2]}}\" && "
                  "printf '%s\\n' \"${COMPREPLY[@]}\"")
        found = run(["bash", "--norc", "-c", script], place).split()
        # Bash itself puts the slash behind a folder.
        return sorted(word + "/" * (place / word).is_dir() for word in found)


class Fish(Bash):
    joined = "--profile=desktop"

    def complete(self, line, place):
        program = line.split()[0]
        script = f"{program} completion fish | source; complete -C {shlex.quote(line)}"
        told = run(["fish", "--no-config", "-c", script], place)
        return sorted(row.split("\t")[0] for row in told.splitlines())


class Zsh:
    """Its completion works in its editor only, and that on a terminal only. The matches are taken where
    they are handed over."""
    joined = "--profile=desktop"
    shell = None  # It serves all lines of one program.
    SETUP = r"""
PROMPT= RPS1=; unsetopt beep
autoload -Uz compinit && compinit -D -u
compadd() {
  local -a taken
  if [[ " $* " != *" "-[AOD]" "* ]]; then
    builtin compadd -A taken "$@"
    print -rl -- $taken >>matches
  fi
  builtin compadd "$@"
}
finish() { : >finished; BUFFER=; }
zle -N finish && bindkey '^X' finish
source <($program completion zsh) && : >ready
"""

    def start(self, program, place):
        self.place = place
        (place / "setup").write_text(self.SETUP.replace("$program", program), encoding="utf-8")
        self.terminal, end = pty.openpty()
        self.shell = subprocess.Popen(["zsh", "-f", "-i", "-s", program], cwd=place, stdin=end, stdout=end, stderr=end,
                                      start_new_session=True)
        os.close(end)
        os.write(self.terminal, b"source ./setup\r")
        self.wait_for("ready")

    def wait_for(self, name):
        deadline, told = time.monotonic() + PATIENCE, b""
        while not (self.place / name).exists():
            assert time.monotonic() < deadline, told.decode(errors="replace")
            if select.select([self.terminal], [], [], 0.05)[0]:
                told += os.read(self.terminal, 4096)
        (self.place / name).unlink()

    def stop(self):
        if self.shell is not None:
            self.shell.kill()
            self.shell.wait()
            os.close(self.terminal)
            self.shell = None

    def complete(self, line, place):
        program, matches = line.split()[0], place / "matches"
        if self.shell is None or self.shell.args[-1] != program:
            self.stop()
            self.start(program, place)
        os.write(self.terminal, line.encode() + b"\t\x18")
        self.wait_for("finished")
        found = matches.read_text(encoding="utf-8").split() if matches.exists() else []
        matches.unlink(missing_ok=True)
        return sorted(word.rstrip("/") + "/" * (place / word).is_dir() for word in set(found))


class Completion(unittest.TestCase):
    shell = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="vm-")
        self.addCleanup(folder.cleanup)
        self.addCleanup(self.shell.stop)
        self.place = pathlib.Path(folder.name)
        (self.place / "folder").mkdir()
        (self.place / "story.yaml").touch()

    def test_words_and_files(self):
        for line, words in CASES.items():
            with self.subTest(line):
                self.assertEqual(self.shell.complete(line, self.place), words)

    def test_value_joined_to_its_option(self):
        self.assertEqual(self.shell.complete(JOINED, self.place), [self.shell.joined])


def main(arguments):
    shells = {"bash": Bash, "fish": Fish, "zsh": Zsh}
    if len(arguments) != 2 or arguments[0] not in shells:
        sys.exit(__doc__)
    Completion.shell = shells[arguments[0]]()
    os.environ["PATH"] = str(pathlib.Path(arguments[1]).resolve()) + os.pathsep + os.environ["PATH"]
    os.environ["TERM"] = "dumb"
    unittest.main(argv=["completion_test"])


if __name__ == "__main__":
    main(sys.argv[1:])
