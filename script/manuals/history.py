"""The moment of a tree's last commit, so that what is made of the tree is the same wherever it is made."""
import datetime
import email.utils
import subprocess


def moment_of(root):
    """Now, where there is no history to ask."""
    told = subprocess.run(["git", "-C", root, "-c", f"safe.directory={root}", "log", "-1", "--format=%ct"],
                          capture_output=True, text=True, check=False).stdout.strip()
    now = datetime.datetime.now(datetime.timezone.utc)
    return datetime.datetime.fromtimestamp(int(told), datetime.timezone.utc) if told else now


def day_of(root):
    return moment_of(root).date().isoformat()


def mail_date_of(root):
    return email.utils.format_datetime(moment_of(root))
