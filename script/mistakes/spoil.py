"""Builds the program with one of its sources spoiled, by the very commands of its own build."""
import json
import pathlib
import re
import shlex
import subprocess

PROGRAM = "KorvelHelper/macOS/KorvelHelper"
LIBRARY = "KorvelHelper/macOS/libkorvel_macos.a"


class Stale(Exception):
    """The list does not fit the tree, or a mistake does not compile."""


def spoiled_text(tree, mistake):
    path = tree / "KorvelHelper/macOS" / mistake.file
    if not path.is_file():
        raise Stale(f"{mistake.name}: there is no {path}")
    text = path.read_text(encoding="utf-8")
    if text.count(mistake.old) != 1:
        raise Stale(f"{mistake.name}: its text stands {text.count(mistake.old)} times in {path}")
    if mistake.old == mistake.new:
        raise Stale(f"{mistake.name}: it changes nothing")
    return text.replace(mistake.old, mistake.new)


def output_of(command):
    return command[command.index("-o") + 1]


class Build:
    """The cross build of a tree, which must be up to date; nothing is written into it."""

    def __init__(self, folder):
        self.folder = folder
        cache = (folder / "CMakeCache.txt").read_text(encoding="utf-8")
        self.tree = pathlib.Path(re.search(r"^CMAKE_HOME_DIRECTORY:INTERNAL=(.*)$", cache, re.M)[1])
        self.program = folder / PROGRAM
        database = json.loads((folder / "compile_commands.json").read_text(encoding="utf-8"))
        self.commands = {entry["file"]: shlex.split(entry["command"]) for entry in database}
        told = subprocess.run(["ninja", "-C", str(folder), "-t", "commands", "-s", PROGRAM],
                              check=True, capture_output=True, text=True).stdout
        self.link = told.strip().splitlines()[-1]

    def run(self, command, what, shell=False):
        done = subprocess.run(command, cwd=self.folder, shell=shell, capture_output=True, text=True,
                              check=False)
        if done.returncode != 0:
            raise Stale(f"{what}:\n{done.stdout}{done.stderr}".rstrip())

    def compiled(self, mistake, place):
        source = self.tree / "KorvelHelper/macOS" / mistake.file
        if str(source) not in self.commands:
            raise Stale(f"{mistake.name}: {source} is not compiled")
        spoiled, made = place / mistake.file, place / (mistake.file + ".o")
        spoiled.write_text(spoiled_text(self.tree, mistake), encoding="utf-8")
        command = list(self.commands[str(source)])
        former = output_of(command)
        command[command.index("-o") + 1] = str(made)
        command[command.index(str(source))] = str(spoiled)
        self.run(command, f"{mistake.name}: it does not compile")
        return made, former

    def linked(self, mistake, place):
        """The program with this mistake, in the folder."""
        made, former = self.compiled(mistake, place)
        program = place / "KorvelHelper"
        before = f"-o {PROGRAM} "
        if before not in self.link or LIBRARY not in self.link:
            raise Stale(f"the link command is of another form: {self.link}")
        command = self.link.replace(before, f"-o {shlex.quote(str(program))} ")
        # Nothing that an object defines is taken from a library behind it.
        if former in command:
            command = command.replace(former, shlex.quote(str(made)))
        else:
            command = command.replace(LIBRARY, f"{shlex.quote(str(made))} {LIBRARY}", 1)
        self.run(command, f"{mistake.name}: it does not link", shell=True)
        return program
