#include "VirtualMac/Web/PageClients.h"

#include <algorithm>
#include <asio/post.hpp>
#include <chrono>
#include <future>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Machine/Nearest.h"

namespace virtualmac {

using nlohmann::json;

namespace {

/// The session waits so long for the helper's reply, in real seconds.
constexpr double replySeconds = 5;
/// Replies may have to wait for earlier ones.
constexpr double answerSeconds = replySeconds * bounds::mostPageRequests + 10;

json refused(const std::string& text) { return {{"ok", false}, {"error", text}}; }
json lostAnswer() { return {{"ok", false}, {"lost", true}, {"error", "the client has ended"}}; }

/// Empty: the wish has no such text, or one that cannot be a name or a line.
std::string word(const json& wish, const char* key) {
  const auto found = wish.find(key);
  if (found == wish.end() || !found->is_string()) return {};
  auto text = found->get<std::string>();
  const auto isControl = [](unsigned char character) { return character < ' '; };
  const bool isFit =
      text.size() <= bounds::longestPageWord && std::ranges::none_of(text, isControl);
  return isFit ? text : std::string();
}

std::string wordProblem(const char* key) {
  return std::string("\"") + key + "\" is a text of 1 to " +
         std::to_string(bounds::longestPageWord) + " bytes on one line";
}

}  // namespace

PageClients::PageClients(RootDirectory home, std::string appProgram)
    : root(std::move(home)),
      program(std::move(appProgram)),
      staying(context.get_executor()),
      thread([this] { context.run(); }) {}

PageClients::~PageClients() {
  context.stop();
  thread.join();
}

json PageClients::await(const std::function<void(const Answer&)>& work) {
  const auto told = std::make_shared<std::promise<json>>();
  auto coming = told->get_future();
  asio::post(context,
             [told, work] { work([told](const json& answer) { told->set_value(answer); }); });
  if (coming.wait_for(std::chrono::duration<double>(answerSeconds)) != std::future_status::ready)
    return refused("no answer came");
  return coming.get();
}

json PageClients::list() {
  return await([this](const Answer& answer) {
    json all = json::array();
    for (const auto& [name, client] : clients) {
      all.push_back({{"name", name},
                     {"identity", client.identity},
                     {"connected", client.process->isConnected()}});
    }
    answer({{"clients", std::move(all)}});
  });
}

json PageClients::perform(const json& wish) {
  const std::string name = word(wish, "client");
  if (name.empty()) return refused(wordProblem("client"));
  const std::string deed = word(wish, "do");
  if (deed == "disconnect" || deed == "kill")
    return await(
        [this, name, byKill = deed == "kill"](const Answer& answer) { end(name, byKill, answer); });
  const bool connects = deed == "connect";
  if (!connects && deed != "send")
    return refused(unknownWord("deed", deed,
                               std::vector<std::string>{"connect", "disconnect", "kill", "send"}));
  const char* key = connects ? "identity" : "request";
  const std::string more = word(wish, key);
  if (more.empty()) return refused(wordProblem(key));
  // The work may outlive this call, so it has its own texts.
  return await([this, connects, name, more](const Answer& answer) {
    connects ? connect(name, more, answer) : send(name, more, answer);
  });
}

json PageClients::unknown(const std::string& name) const {
  std::vector<std::string> names;
  for (const auto& [each, client] : clients) names.push_back(each);
  return refused(names.empty() ? "client \"" + name + "\" is unknown: none is connected"
                               : unknownWord("client", name, names));
}

void PageClients::connect(const std::string& name, const std::string& identity,
                          const Answer& answer) {
  const auto found = clients.find(name);
  if (found != clients.end() && !found->second.process->isGone())
    return answer(refused("client \"" + name + "\" is connected already"));
  if (found == clients.end() && clients.size() >= bounds::mostPageClients)
    return answer(
        refused("a page has at most " + std::to_string(bounds::mostPageClients) + " clients"));
  if (found != clients.end()) clients.erase(found);
  try {
    auto process = std::make_unique<ClientProcess>(context, program, root, identity, replySeconds);
    ClientProcess& session = *process;
    const std::uint64_t ticket = ++lastTicket;
    clients[name] = {identity, std::move(process), {{ticket, answer}}};
    session.whenOpen([this, name, ticket](const std::string& line) {
      const json said = json::parse(line, nullptr, false);
      const auto client = clients.find(name);
      if (client != clients.end() && client->second.process->isConnected())
        return answered(name, ticket, {{"ok", true}, {"connected", true}});
      answered(name, ticket,
               refused(said.is_object() ? said.value("error", "it did not connect")
                                        : "the client ended before it was connected"));
      clients.erase(name);
    });
  } catch (const std::runtime_error& trouble) {
    answer(refused(trouble.what()));
  }
}

void PageClients::send(const std::string& name, const std::string& request, const Answer& answer) {
  const auto found = clients.find(name);
  if (found == clients.end()) return answer(unknown(name));
  if (found->second.waiting.size() >= bounds::mostPageRequests)
    return answer(refused("client \"" + name + "\" waits for " +
                          std::to_string(bounds::mostPageRequests) + " answers already"));
  const std::uint64_t ticket = ++lastTicket;
  found->second.waiting.emplace(ticket, answer);
  found->second.process->send(request, [this, name, ticket](const std::string& line) {
    const json said = json::parse(line, nullptr, false);
    answered(name, ticket, said.is_object() ? said : lostAnswer());
  });
}

void PageClients::answered(const std::string& name, std::uint64_t ticket, const json& said) {
  const auto client = clients.find(name);
  if (client == clients.end()) return;
  if (const auto waiting = client->second.waiting.extract(ticket)) waiting.mapped()(said);
}

void PageClients::end(const std::string& name, bool byKill, const Answer& answer) {
  const auto found = clients.find(name);
  if (found == clients.end()) return answer(unknown(name));
  if (byKill) found->second.process->kill();
  for (const auto& [ticket, waiting] : found->second.waiting) waiting(lostAnswer());
  clients.erase(found);
  answer({{"ok", true}});
}

}  // namespace virtualmac
