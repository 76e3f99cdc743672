"""Who may drive a live machine: the page that has the token, and no other."""
import http.client
import json

from case import LiveTest
from stub import Stub

# Everything by which a page can reach out to another server.
ATTEMPTS = """
  const [address, token] = given;
  const order = JSON.stringify({command: 'set', arguments: ['battery', '11']});
  const api = address + 'api/';
  const told = {};
  const attempt = async (name, act) => {
    try { told[name] = await act(); } catch (error) { told[name] = 'refused'; }
  };
  const read = async (promise) => { const answer = await promise; return answer.type + ' ' + await answer.text(); };
  await attempt('reads the status', () => read(fetch(api + 'status')));
  await attempt('reads it with the token', () =>
      read(fetch(api + 'status', {headers: {'X-Virtual-Mac-Token': token}})));
  await attempt('orders', () => read(fetch(api + 'machine', {method: 'POST', body: order})));
  await attempt('orders with the token', () => read(fetch(api + 'machine',
      {method: 'POST', body: order, headers: {'X-Virtual-Mac-Token': token}})));
  await attempt('orders blindly', () => read(fetch(api + 'machine',
      {method: 'POST', body: order, mode: 'no-cors', headers: {'Content-Type': 'text/plain'}})));
  await attempt('beacon', () => navigator.sendBeacon(api + 'machine', order) && 'sent');
  await attempt('event source', () => new Promise((resolve, reject) => {
    const source = new EventSource(api + 'journal?from=0');
    source.onmessage = (event) => resolve('read ' + event.data);
    source.onerror = () => { source.close(); reject(); };
  }));
  await attempt('web socket', () => new Promise((resolve, reject) => {
    const socket = new WebSocket(api.replace('http', 'ws') + 'journal?from=0');
    socket.onopen = () => resolve('open');
    socket.onerror = reject;
  }));
  await attempt('script', () => new Promise((resolve, reject) => {
    const script = document.createElement('script');
    script.src = api + 'status';
    script.onload = () => resolve('loaded');
    script.onerror = reject;
    document.head.append(script);
  }));
  const form = document.createElement('form');
  form.method = 'post';
  form.enctype = 'text/plain';
  form.action = api + 'machine';
  form.target = 'inner';
  const field = document.createElement('input');
  field.name = order;
  form.append(field);
  const frame = document.createElement('iframe');
  frame.name = 'inner';
  document.body.append(frame, form);
  await attempt('form', () => new Promise((resolve) => {
    frame.onload = () => resolve('answered');
    form.submit();
  }));
  return told;
"""


class Doors(LiveTest):
    notes_addresses = True

    def ask(self, path, method="GET", body=None, **headers):
        """Asks past the browser; names of headers are told with underscores."""
        connection = http.client.HTTPConnection("127.0.0.1", self.mac.port, timeout=60)
        self.addCleanup(connection.close)
        given = {name.replace("_", "-"): value for name, value in headers.items()}
        connection.request(method, path, body, given)
        answer = connection.getresponse()
        return answer.status, answer.headers, answer.read()

    def assert_error(self, told, status):
        self.assertEqual(told[0], status, told)
        answer = json.loads(told[2])
        self.assertFalse(answer["ok"])
        self.assertTrue(answer["error"])

    def test_a_foreign_page_changes_nothing_and_reads_nothing(self):
        self.expected_complaints = [""]  # Every attempt is one.
        self.mac.command("set", "battery", 70)
        foreign = Stub()
        self.addCleanup(foreign.end)
        self.browser.open(foreign.address)
        told = self.browser.later(ATTEMPTS, self.mac.address, self.mac.token)
        self.assertEqual(len(told), 10)
        orders = told.pop("orders blindly")
        self.assertIn(orders, ("refused", "opaque "))
        self.assertIn(told.pop("beacon"), ("refused", "sent"))
        told.pop("form")
        self.assertEqual(set(told.values()), {"refused"}, told)
        self.assertFalse([line for line in self.mac.journal() if "battery set to 11" in line])
        self.assertGreater(self.mac.status()["batteryPercent"], 60)

    def test_a_foreign_page_cannot_frame_this_one(self):
        _, headers, _ = self.ask("/")
        framing = headers.get("Content-Security-Policy", "")
        self.assertIn("frame-ancestors 'none'", framing)

    def test_a_request_without_the_token_or_with_a_wrong_one_is_told_so(self):
        for path in ("/api/status", "/api/journal?from=0", "/api/clients", "/api/vocabulary"):
            self.assert_error(self.ask(path), 401)
            self.assert_error(self.ask(path, X_Virtual_Mac_Token="0" * len(self.mac.token)), 401)
        order = json.dumps({"command": "set", "arguments": ["battery", "11"]})
        self.assert_error(self.ask("/api/machine", "POST", order), 401)

    def test_another_host_or_origin_is_refused_even_with_the_token(self):
        token = {"X_Virtual_Mac_Token": self.mac.token}
        port = self.mac.port
        for headers in ({"Host": "elsewhere.example"}, {"Host": f"elsewhere.example:{port}"},
                        {"Host": "127.0.0.1:1"}, {"Origin": "http://elsewhere.example"},
                        {"Origin": f"https://127.0.0.1:{port}"}, {"Origin": "null"}):
            self.assert_error(self.ask("/api/status", **token, **headers), 403)
        for headers in ({"Host": f"localhost:{port}"}, {"Origin": f"http://127.0.0.1:{port}"}):
            self.assertEqual(self.ask("/api/status", **token, **headers)[0], 200)

    def test_the_page_listens_on_loopback_alone(self):
        sockets = [line.split() for name in ("tcp", "tcp6")
                   for line in open(f"/proc/net/{name}", encoding="ascii").readlines()[1:]]
        listening = [words[1] for words in sockets
                     if words[3] == "0A" and words[1].endswith(f":{self.mac.port:04X}")]
        self.assertEqual(listening, [f"0100007F:{self.mac.port:04X}"])

    def test_a_wrong_token_is_told_on_the_page(self):
        self.expected_complaints = ["401"]
        self.browser.open(self.mac.address + "#token=" + "0" * len(self.mac.token))
        said = json.loads(self.ask("/api/status", X_Virtual_Mac_Token="0")[2])["error"]
        self.browser.until_text("#connection", said)

    def test_without_a_token_the_page_says_which_link_to_open(self):
        self.browser.open(self.mac.address)
        self.browser.until_text("#connection", "virtual-mac up --web")

    def test_the_token_leaves_the_address_and_survives_a_reload(self):
        self.open_live()
        self.assertNotIn(self.mac.token, self.browser.driver.current_url)
        self.assertFalse([each for each in self.browser.addresses() if self.mac.token in each
                          and not each.startswith(self.mac.link)])
        self.browser.driver.refresh()
        self.browser.until_text("#connection", "connected to the machine")
        self.assertNotIn(self.mac.token, self.browser.script("return document.documentElement.outerHTML"))

    def test_a_right_link_opened_in_a_page_that_was_refused_connects_it(self):
        self.browser.open(self.mac.address)
        self.browser.until_text("#connection", "virtual-mac up --web")
        self.browser.open(self.mac.link)
        self.browser.until_text("#connection", "connected to the machine")
