#include "DiskFaults.h"
#include "VirtualMac/InProcess/World.h"
#include "contract/SeamContract.h"

namespace virtualmac {
namespace {

class InProcessClient final : public RigClient {
 public:
  explicit InProcessClient(std::unique_ptr<AppClient> connection) : app(std::move(connection)) {}
  AppCallRef call(std::string_view selector, std::uint8_t argument) override {
    return app->send(selector, argument);
  }
  void disconnect() override { app->disconnect(); }
  [[nodiscard]] std::int32_t pid() const override { return app->pid(); }

 private:
  std::unique_ptr<AppClient> app;
};

/// Runs a bare process of a world; the test's thread drives the world.
class InProcessRig final : public SeamRig {
 public:
  InProcessRig(const std::string& profile, Scheduling scheduling)
      : world(optionsFor(profile, scheduling)) {
    world.startBareHelper();
    world.runUntilIdle();
  }
  korvel::Platform& platform() override { return world.platform(); }
  void onMain(std::function<void()> body) override { world.onMain(std::move(body)); }
  void pass(double seconds) override { world.runFor(seconds); }
  bool until(const std::function<bool()>& reached, double limitSeconds) override {
    return world.runUntil(reached, limitSeconds);
  }
  void machine(const std::function<void(Machine&)>& body) override { body(world.machine()); }
  std::unique_ptr<RigClient> connect(std::string_view identity) override {
    return std::make_unique<InProcessClient>(world.connectApp(identity));
  }
  void signal(int number) override { world.sendSignal(number); }
  bool logged(std::string_view category, korvel::LogLevel level, std::string_view text) override {
    return world.logged(category, level, text);
  }

 private:
  static WorldOptions optionsFor(const std::string& profile, Scheduling scheduling) {
    WorldOptions options;
    options.profile = profile;
    options.scheduling = scheduling;
    return options;
  }
  World world;
};

RigKind kind(const std::string& name, Scheduling scheduling) {
  return {name, [scheduling](const std::string& profile) {
            return std::make_unique<InProcessRig>(profile, scheduling);
          }};
}

const auto kinds =
    testing::Values(kind("Fifo", Scheduling::Fifo), kind("Seeded", Scheduling::Seeded));
INSTANTIATE_SEAM_CONTRACTS(InProcess, kinds);
INSTANTIATE_SEAM_CONTRACT(InProcess, DiskFaults, kinds);

}  // namespace
}  // namespace virtualmac
