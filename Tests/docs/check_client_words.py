#!/usr/bin/env python3
"""Compares the words of the two clients for a person: korvel-app, on a virtual Mac, and the sample client, on a
Mac. Commands, their arguments, former words and the doctor's states are the same, but for the exceptions that are
named here with their reasons.

usage: check_client_words.py REPOSITORY
       check_client_words.py --self-test
"""
import pathlib
import re
import sys

OPERATION = re.compile(r'^OPERATION\(\w+, "[\w:]+", (\w+),\s+\w+, "([\w-]+)"\)', re.M)
ARGUMENTS = {"None": "", "UInt8": "PERCENT", "Boolean": "on|off"}
# Each with its reason. A word that is no exception any more is a defect too.
ONLY_ON_THE_VIRTUAL_MAC = {
    "status": "tells what the helper's log says, which no application on a Mac can read",
    "session": "is for languages that cannot call NSXPCConnection; a Mac's have their own ways"}
ONLY_OPTIONS_OF_THE_VIRTUAL_MAC = {
    "--root": "a Mac is one machine", "--as": "a Mac's client is who its signature says",
    "--json": "the sample prints for a person; its bundle is JSON",
    "--timeout": "the sample has a fixed time, which docs/client.md tells",
    "--reconnect": "belongs to session", "--for": "the sample watches until it is ended",
    "--every": "the sample looks every two seconds"}
# The outputs that are not the same, with what each of the two says.
OUTPUTS = {
    "ping": "korvel-app says \"helper N\"; docs/macos.md takes the sample's bare number into a variable",
    "state": "korvel-app shows the record as it was sent; the sample explains it, as status does there",
    "capabilities": "korvel-app names the keys in use; the sample shows the record's five fields",
    "set-limit": "korvel-app says \"ok\"; the sample says nothing when all is well"}


def words_of_the_app(operations, commands, others):
    """{word: argument} of korvel-app, and of virtual-mac what the sample has in itself."""
    found = {word: ARGUMENTS[kind] for kind, word in OPERATION.findall(operations)}
    for name in re.findall(r'\badd\(\s*"([\w-]+)"', commands):
        found[name] = ""
    if re.search(r'add_subcommand\(\s*"bundle"', others):
        found["bundle"] = "FILE"
    return found


def words_of_the_sample(source):
    """{word: argument} of its help."""
    usage = source.split("static NSString *const usage", 1)[-1].split(";\n", 1)[0]
    return {word: argument for word, argument in
            re.findall(r'"  (\w[\w-]*)(?: ([A-Z]+|on\|off))? {2,}\w', usage)}


def words_served(source):
    """{word: whether it takes an argument} of what main() lets through."""
    served = {}
    for name, takes in (("plain", False), ("withArgument", True)):
        listed = re.search(rf"\*{name} = @\[(.*?)\];", source, re.S)
        for word in re.findall(r'@"([\w-]+)"', listed.group(1) if listed else ""):
            served[word] = takes
    return served


def words_handled(source):
    """Those that some line compares with the command, but for the ends of if-chains."""
    return set(re.findall(r'\[command isEqual:@"(\w[\w-]*)"\]', source))


def former_words(nearest):
    return dict(re.findall(r'\{"([\w-]+)", "([\w-]+)"\}', nearest))


def former_of_the_sample(source):
    listed = re.search(r"\*former =\s*@\{(.*?)\};", source, re.S)
    return dict(re.findall(r'@"([\w-]+)" : @"([\w-]+)"', listed.group(1) if listed else ""))


def outputs_differ(app, sample):
    """{command: whether the two still say it differently}."""
    return {"ping": '"helper {}\\n"' in app and 'stringWithFormat:@"%llu"' in sample,
            "state": "limit            %@ %%" in sample and "payload);" in app,
            "capabilities": "capabilitiesText" in app and "%-18s %@" in sample,
            "set-limit": '"ok"' in app and 'say(@"ok")' not in sample}


def differences(app, sample, served, handled):
    missing = set(app) - set(sample)
    for word in sorted(missing - set(ONLY_ON_THE_VIRTUAL_MAC)):
        yield f"\"{word}\" is a word of korvel-app and not of the sample client"
    for word in sorted(set(ONLY_ON_THE_VIRTUAL_MAC) - missing):
        yield f"\"{word}\" is no exception any more"
    for word in sorted(set(sample) - set(app)):
        yield f"\"{word}\" is a word of the sample client and not of korvel-app"
    for word in sorted(set(app) & set(sample)):
        if app[word] != sample[word]:
            yield f"\"{word}\" takes \"{app[word]}\" there and \"{sample[word]}\" in the sample client"
    for word in sorted(set(sample) ^ set(served)):
        yield f"\"{word}\" stands in the sample's help or in its lists, and not in both"
    for word in sorted(set(sample) & set(served)):
        if served[word] != bool(sample[word]):
            yield f"\"{word}\" is in the wrong list of the sample client"
    # The last of a chain is reached without being compared.
    for word in sorted(set(served) - handled - {"capabilities", "keep-awake"}):
        yield f"nothing in the sample client does \"{word}\""


def complaints(root):
    def text(*names):
        return "".join((root / name).read_text(encoding="utf-8") for name in names)

    commands = text("VirtualMac/Tools/AppCommands.cpp")
    sample = text("Packaging/samples/objc/korvel-client.m")
    app = words_of_the_app(text("KorvelHelper/Operations.def"), commands, text("VirtualMac/Tools/BundleCommand.cpp"))
    if len(app) < 11:
        yield f"only {sorted(app)} were found"
    yield from differences(app, words_of_the_sample(sample), words_served(sample), words_handled(sample))
    options = set(re.findall(r'add_(?:option|flag)\("(--[\w-]+)"', commands))
    for option in sorted(options ^ set(ONLY_OPTIONS_OF_THE_VIRTUAL_MAC)):
        yield f"{option} is an option without a named exception, or an exception without an option"
    known = former_words(text("VirtualMac/Machine/Nearest.cpp"))
    for former, present in former_of_the_sample(sample).items():
        if known.get(former) != present:
            yield f"\"{former}\" was \"{present}\" to the sample client, and {known.get(former)} to korvel-app"
    if "DoctorStates.def" not in text("Packaging/samples/objc/korvel-doctor.m", "Packaging/samples/objc/korvel-doctor.h"):
        yield "the sample's doctor has another table of states"
    differ = outputs_differ(commands, sample)
    for command in sorted(OUTPUTS):
        if not differ[command]:
            yield f"the output of {command} is no exception any more"


def self_test():
    app = {"ping": "", "set-limit": "PERCENT", "status": "", "session": ""}
    sample = {"ping": "", "set-limit": "PERCENT"}
    served, handled = {"ping": False, "set-limit": True}, {"ping", "set-limit"}
    assert not list(differences(app, sample, served, handled))
    spoiled = [(app | {"reset": ""}, sample, served, handled), (app, sample | {"halt": ""}, served, handled),
               (app, {"ping": "", "set-limit": "on|off"}, served, handled), (app, sample, {"ping": False}, handled),
               (app, sample, {"ping": True, "set-limit": True}, handled), (app, sample, served, {"ping"}),
               ({"ping": "", "set-limit": "PERCENT", "status": ""}, sample, served, handled)]
    for case in spoiled:
        assert list(differences(*case)), case
    assert words_of_the_app('OPERATION(a, "a:reply:", UInt8, Outcome, "set-limit")\n', 'add("watch", "x")',
                            'add_subcommand("bundle"') == {"set-limit": "PERCENT", "watch": "", "bundle": "FILE"}
    source = 'static NSString *const usage =\n  "  ping                   x\\n"\n  "  keep-awake on|off   stay\\n";\n'
    assert words_of_the_sample(source) == {"ping": "", "keep-awake": "on|off"}, words_of_the_sample(source)
    assert words_served('*plain = @[ @"a" ];\n*withArgument = @[ @"b" ];') == {"a": False, "b": True}
    assert former_of_the_sample('*former =\n @{@"a" : @"b"};') == {"a": "b"}


def main():
    if sys.argv[1:] == ["--self-test"]:
        self_test()
        return 0
    if len(sys.argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    found = list(complaints(pathlib.Path(sys.argv[1])))
    print("\n".join(found) or "korvel-app and the sample client have the same words, but for the named exceptions")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
