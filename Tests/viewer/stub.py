"""A web server that serves the viewer's modules, and answers as a test tells it to."""
import http.server
import json
import pathlib
import threading
import urllib.parse

VIEWER = pathlib.Path(__file__).resolve().parents[2] / "VirtualMac/Viewer"
PAGE = """<!doctype html><html lang="en"><title>Modules</title>
<link rel="icon" href="data:,">
<script type="importmap">{"imports": MAP}</script><body></body></html>"""


def page():
    names = sorted(path.stem for path in VIEWER.glob("*.js"))
    return PAGE.replace("MAP", json.dumps({f"viewer/{name}": f"/viewer/{name}.js" for name in names}))


class Request(http.server.BaseHTTPRequestHandler):
    def log_message(self, *words):
        pass

    def do_GET(self):
        self.answer()

    def do_POST(self):
        self.answer()

    def answer(self):
        where = urllib.parse.urlsplit(self.path)
        self.query = dict(urllib.parse.parse_qsl(where.query))
        self.given = self.rfile.read(int(self.headers.get("Content-Length", 0))).decode()
        try:
            if where.path == "/":
                self.give(200, "text/html", page())
            elif where.path.startswith("/viewer/"):
                self.give(200, "text/javascript", (VIEWER / where.path[8:]).read_text(encoding="utf-8"))
            else:
                self.server.stub.take(where.path, self)
        except (BrokenPipeError, ConnectionResetError):
            self.close_connection = True

    def give(self, status, kind, text):
        data = text.encode()
        self.send_response(status)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def give_json(self, value, status=200):
        self.give(status, "application/json", json.dumps(value))

    def begin_stream(self, run):
        self.send_response(200)
        self.send_header("Content-Type", "text/plain")
        self.send_header("X-Virtual-Mac-Run", run)
        self.end_headers()

    def stream(self, data):
        self.wfile.write(data)
        self.wfile.flush()


class Stub:
    """`routes`: path -> function of a request; `requests`: (path, query, headers) of those that came."""

    def __init__(self, **routes):
        self.routes = {"/" + name.replace("_", "/"): route for name, route in routes.items()}
        self.requests = []
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Request)
        self.server.daemon_threads = True
        self.server.stub = self
        self.thread = threading.Thread(target=self.server.serve_forever, daemon=True)
        self.thread.start()

    @property
    def address(self):
        return f"http://127.0.0.1:{self.server.server_address[1]}/"

    def take(self, path, request):
        self.requests.append((path, request.query, dict(request.headers)))
        route = self.routes.get(path)
        if route is None:
            request.give_json({"ok": False, "error": f"no {path}"}, 404)
        else:
            route(request)

    def asked(self, path):
        return [query for where, query, _ in self.requests if where == path]

    def end(self):
        self.server.shutdown()
        self.server.server_close()
        self.thread.join()
