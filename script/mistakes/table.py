"""The mistakes: what a person could write into the macOS edge by accident."""
import dataclasses


@dataclasses.dataclass(frozen=True)
class Mistake:
    name: str
    what: str
    file: str     # in KorvelHelper/macOS
    old: str      # stands there exactly once
    new: str
    scene: str    # notices it


MISTAKES = (
    Mistake("leaked-error", "an error's user info is never released", "FoundationConversion.mm",
            "      (__bridge_transfer NSDictionary*)makeCFDictionary(error.userInfo).handOver();",
            "      (__bridge NSDictionary*)makeCFDictionary(error.userInfo).handOver();", "clients"),
    Mistake("narrow-limit", "a reply's Boolean is turned round", "ExportedObject.mm",
            "if (block != nil) block(success, error ? makeNSError(*error) : nil);",
            "if (block != nil) block(!success, error ? makeNSError(*error) : nil);", "clients"),
    Mistake("wrong-argument-index", "the classes are set for the reply's next argument",
            "FoundationConversion.mm", "            argumentIndex:setting.argumentIndex\n",
            "            argumentIndex:setting.argumentIndex + 1\n", "clients"),
)
