"""The scenes: short lives of a virtual Mac whose helper is the Mac's own program. Each ends with
the program's orderly end and its books; an expectation that does not hold raises Unmet."""
import os
import pathlib
import re

REFUSED = 400
FAILED = 500
NOT_AWAKE = 501
EPOCH_OF_2026 = 788_918_400  # seconds from 2001 to the virtual Mac's start
LIMIT_TEXT = "Charge limit must be between 20 and 100 (got {})."
AWAKE_TEXT = "Could not keep the Mac awake for clamshell discharge (SleepDisabled write failed)."
TOO_WARM = ("Clamshell discharge stopped — the battery got too warm with the lid closed. Let it "
            "cool down, then restart if you still want to drain.")
PAUSED = "CHTE <- 01 00 00 00"
# Virtual seconds: between two ticks of the loop, and from the last client's end to the suspension.
TICK, GRACE = 5, 30


def clients(mac):
    mac.up()
    app = mac.connect()
    ping = app.does("ping")
    pid = mac.status()["helperPid"]
    mac.expect("ping tells the program's number", ping.get("pid") == pid, ping)
    mac.logs(f"Boot default \"KorvelHelper starting pid={pid} team=ABCDE12345\"")
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


def limit(mac):
    mac.up()
    mac.tell("set", "battery", "81")
    app = mac.connect()
    app.does("set-limit 80")
    mac.logs(PAUSED)
    mac.logs("charge enforcement pause:ok")
    mac.holds(chargingInhibited=True)
    app.does("set-limit 79")
    state = app.does("state")
    seconds = state["lastWriteAt"] - EPOCH_OF_2026
    mac.expect("the record's time is the Mac's", 0 <= seconds <= mac.status()["seconds"], seconds)
    mac.expect("the write is verified", state["lastWriteVerified"] is True, state)
    # The registry's answer is a number now, and a number is no Boolean.
    mac.tell("fault", "adapter-mistyped", "on")
    mac.tell("set", "battery", "60")
    mac.passes(3 * TICK)
    mac.holds(chargingInhibited=True)
    mac.tell("fault", "adapter-mistyped", "off")
    mac.holds(chargingInhibited=False)
    mac.tell("fault", "power-sources-mistyped", "on")
    mac.tell("set", "battery", "90")
    mac.passes(3 * TICK)
    mac.holds(chargingInhibited=False)
    mac.tell("fault", "power-sources-mistyped", "off")
    mac.holds(chargingInhibited=True)
    mac.tell("fault", "smc-stale", "on")
    app.does("clear-limit")
    mac.holds(chargingInhibited=False)
    mac.logs("AppleSMC connection reopened after stale-handle recovery")
    app.does("set-limit 79")
    app.end()
    mac.passes(GRACE / 2)
    mac.silent("all clients gone")
    mac.logs("all clients gone")
    mac.end()


def discharge(mac):
    mac.up("two-banks")
    mac.tell("set", "battery", "70")
    app = mac.connect()
    app.does("set-limit 50")
    app.does("discharge on")
    mac.holds(inflowInhibited=True)
    kinds = sorted(each["type"] for each in mac.status()["assertions"])
    mac.expect("two assertions", kinds == ["PreventSystemSleep", "PreventUserIdleSystemSleep"],
               kinds)
    mac.logs(", 14400 s)", 2)
    app.does("keep-awake on")
    mac.holds(sleepDisabled=True)
    mac.tell("set", "lid", "closed")
    mac.tell("set", "temperature", "50")
    mac.holds(inflowInhibited=False, assertions=[])
    app.does("keep-awake off")
    state = app.does("state")
    mac.expect("the battery got too warm", state.get("lastDischargeAbortReason") == TOO_WARM, state)
    mac.tell("set", "temperature", "free")
    mac.tell("fault", "assertion-secondary-refused", "on")
    mac.tell("set", "lid", "open")
    mac.holds(power="awake")
    app.does("discharge on")
    mac.logs("IOPMAssertion error \"secondary PreventSystemSleep assertion failed: -536870")
    app.does("discharge off")
    mac.holds(inflowInhibited=False, assertions=[])
    mac.end()


def keep_awake(mac):
    mac.up()
    app = mac.connect()
    app.does("keep-awake on")
    mac.holds(sleepDisabled=True)
    app.does("keep-awake off")
    mac.holds(sleepDisabled=False)
    mac.tell("set", "sleep-disabled", "on")
    app.does("keep-awake on")
    mac.logs("clamshell keep-awake ARMED (SleepDisabled already set externally")
    app.does("keep-awake off")
    mac.expect("it is left as found", mac.status()["sleepDisabled"] is True)
    mac.tell("set", "sleep-disabled", "off")
    mac.tell("fault", "settings-refused", "on")
    app.refuses("keep-awake on", NOT_AWAKE, AWAKE_TEXT)
    mac.logs("IOPMSetSystemPowerSetting(SleepDisabled, true) failed: -536870")
    mac.end()


def sleep(mac):
    mac.up(speed=5)
    app = mac.connect()
    mac.tell("set", "battery", "60")
    app.does("set-limit 80")
    for night in (1, 2):
        mac.tell("sleep")
        mac.logs("kIOMessageSystemWillSleep — flushing pre-sleep SMC pause-write", night)
        mac.holds(power="asleep")
        mac.tell("wake")
        mac.logs("kIOMessageSystemHasPoweredOn — re-evaluating charge gate", night)
        mac.holds(power="awake", chargingInhibited=False)
    mac.logs(" acknowledged by pid", 2)
    mac.silent("not acknowledged")
    mac.logs("pre-sleep CHTE pause-write succeeded", 2)
    mac.end()


def native_limit(mac):
    mac.furniture["PowerUISmartChargeClient"] = 1
    mac.up("native-only")
    mac.tell("set", "battery", "90")
    app = mac.connect()
    mac.logs("PowerUI native charge backend ready — limits=[80, 85, 90, 95, 100]")
    mac.expect("only the native control", app.does("capabilities") == {
        "tahoeCharging": False, "preTahoeCharging": False, "tahoeDischarge": False,
        "preTahoeDischarge": False, "nativeCharging": True})
    app.does("set-limit 85")
    mac.holds(nativeLimit=85)
    mac.logs("PowerUI setLimit(85) → snapped 85 (raw=85, readback=85)")
    mac.tell("fault", "powerui-error", "Größe 2 – busy", "on")
    mac.tell("set", "battery", "70")
    mac.logs("charge enforcement resume:Native charge control failed: PowerUI call failed: "
             "Größe 2 – busy — limit is NOT being applied")
    mac.tell("fault", "powerui-error", "off")
    mac.holds(nativeLimit=0)
    mac.tell("fault", "powerui-refuses", "on")
    mac.tell("set", "battery", "95")
    mac.logs("PowerUI rejected charge limit 85")
    mac.end()


def descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def mode_of(path):
    return oct(path.stat().st_mode & 0o7777)


def files(mac):
    folder = mac.disk("")
    folder.mkdir(parents=True)
    folder.chmod(0o777)
    os.mkfifo(mac.disk("state.json"))
    mac.disk("state.json.tmp").write_text("half", encoding="utf-8")
    mac.up()
    mac.logs("state.json corrupt — Invalid argument [NSPOSIXErrorDomain 22]")
    app = mac.connect()
    app.does("set-limit 60")
    mac.expect("the limit is saved", mac.state()["chargeLimit"] == 60, mac.state())
    modes = [mode_of(mac.disk("state.json")), mode_of(folder)]
    mac.expect("only root reads the record", modes == ["0o600", "0o700"], modes)
    pid = mac.status()["helperPid"]
    before = descriptors(pid)
    for percent in (61, 62, 63, 64):
        app.does(f"set-limit {percent}")
    mac.expect("no file stays open", descriptors(pid) == before, descriptors(pid) - before)
    mask = re.search(r"^Umask:\s*(\d+)$", pathlib.Path(f"/proc/{pid}/status").read_text(
        encoding="utf-8"), re.M)[1]
    mac.expect("the file mask is what it was", mask != "0000" and mask != "0077", mask)
    for fault, said in ((("disk-full",), "write failed: No space left on device "
                         "[NSPOSIXErrorDomain 28]"),
                        (("disk-call-fails", "fsync", "5"), "write failed: Input/output error "
                         "[NSPOSIXErrorDomain 5]"),
                        (("disk-rename-fails",), "atomic rename failed: ")):
        mac.tell("fault", *fault, "on")
        app.ask("set-limit 70")
        mac.logs("persistence.write failed: " + said)
        mac.tell("fault", *fault[:2], "off")
    mac.expect("the old record stays", mac.state()["chargeLimit"] == 64, mac.state())
    mac.tell("fault", "disk-short-writes", "7", "on")
    app.does("set-limit 71")
    mac.expect("short writes are continued", mac.state()["chargeLimit"] == 71, mac.state())
    mac.end()


def shutdown(mac):
    mac.up()
    mac.tell("set", "battery", "70")
    app = mac.connect()
    app.does("set-limit 50")
    mac.holds(chargingInhibited=True)
    mac.end("INT")
    mac.logs("Boot default \"SIGINT — shutting down gracefully\"")
    mac.expect("charging is the system's again", mac.status()["chargingInhibited"] is False)


def hung(mac):
    """The hardware hangs, so nothing is restored, and the program ends all the same."""
    mac.up(speed=1)
    mac.tell("set", "battery", "70")
    app = mac.connect()
    app.does("set-limit 50")
    mac.holds(chargingInhibited=True)
    mac.tell("fault", "smc-latency", "100000", "on")
    app.does("set-limit 60")
    mac.passes(1)
    app.does("ping")
    mac.stop("TERM")
    mac.expect("nothing is restored", mac.status()["chargingInhibited"] is True)


SCENES = {"clients": clients, "limit": limit, "discharge": discharge, "keep-awake": keep_awake,
          "sleep": sleep, "native-limit": native_limit, "files": files, "shutdown": shutdown,
          "hung": hung}
