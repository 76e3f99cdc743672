"""The scenes: short lives of a virtual Mac whose helper is the Mac's own program. Each ends with the
program's orderly end and its books; an expectation that does not hold raises Unmet."""
import re
import subprocess

REFUSED = 400
FAILED = 500
LIMIT_TEXT = "Charge limit must be between 20 and 100 (got {})."


def clients(mac):
    mac.up()
    app = mac.connect()
    ping = app.does("ping")
    mac.expect("ping tells the program's number", ping.get("pid") == mac.status()["helperPid"], ping)
    mac.logs(f"Boot default \"KorvelHelper starting pid={ping['pid']} team=ABCDE12345\"")
    mac.expect("the capabilities", app.does("capabilities") == {
        "tahoeCharging": True, "preTahoeCharging": False, "tahoeDischarge": True,
        "preTahoeDischarge": False, "nativeCharging": False})
    app.refuses("set-limit 101", REFUSED, LIMIT_TEXT.format(101))
    app.refuses("set-limit 200", REFUSED, LIMIT_TEXT.format(200))
    app.does("set-limit 80")
    mac.logs(f"setChargeLimit(80) pid={app.process.pid} signingID=com.korvel.app team=ABCDE12345")
    state = app.does("state")
    mac.expect("the record", (state["chargeLimit"], state["helperVersion"]) == (80, "2.0.0"), state)
    app.refuses("discharge on", REFUSED, "Battery is already at the 80% limit.")
    mac.tell("set", "battery", "90")
    mac.tell("fault", "smc-write-result", "CHIE", "134", "on")
    app.refuses("discharge on", FAILED, "kSMCWriteKey failed (kIOReturn=0, smcResult=134)")
    mac.tell("fault", "smc-write-result", "CHIE", "off")
    other = mac.connect()
    mac.logs("HelperImpl default \"client connected (count=2)\"")
    other.does("ping")
    other.end()
    mac.logs("HelperImpl default \"client disconnected (count=1)\"")
    mac.logs("connection invalidated")
    stranger = mac.run("korvel-app", "--as", "unsigned", "--timeout", "5", "ping")
    mac.expect("a stranger is not answered", stranger.returncode != 0, stranger.stdout)
    app.does("clear-limit")
    mac.end()


SCENES = {
    "clients": (clients, "newer-keys", 20),
}
