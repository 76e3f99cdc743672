#!/usr/bin/env python3
"""Holds a charge limit on the virtual Mac through `korvel-app session`, which is there for languages
that cannot connect to the helper themselves.

usage: hold.py PERCENT
"""
import json
import subprocess
import sys


# docs/client.md shows this as "A session".

def hold(percent):
    """Sets the limit whenever the helper is there, until the helper refuses it."""
    words = ["korvel-app", "--timeout", "20", "session", "--reconnect", "at-once"]
    session = subprocess.Popen(words, text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    for line in session.stdout:
        told = json.loads(line)
        if told.get("event") == "connected":
            session.stdin.write(f"set-limit {percent}\nstate\n")
            session.stdin.flush()
        elif told.get("event") == "disconnected":
            print("the helper is gone", flush=True)
        elif "state" in told:
            print(f"holding at {told['state']['chargeLimit']} %", flush=True)
        elif "code" in told:
            session.stdin.close()
            return f"refused: {told['error']}"
    return "no session"

# docs/client.md shows up to here.


if __name__ == "__main__":
    if len(sys.argv) != 2 or not sys.argv[1].isdigit():
        sys.exit(__doc__)
    try:
        sys.exit(hold(sys.argv[1]))
    except KeyboardInterrupt:
        pass
