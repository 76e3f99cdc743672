#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <optional>

#include "KorvelHelperProtocol.h"
#include "Platform/XPCListener.h"
#include "Tests/seam/RemoteRig.h"

namespace virtualmac {
namespace {

/// Refuses each client after a timer has fired that it makes then.
class WaitingDelegate final : public korvel::XPCListenerDelegate {
 public:
  explicit WaitingDelegate(korvel::Dispatch& owner)
      : dispatch(owner), queue(owner.makeSerialQueue("timers")) {}

  bool shouldAcceptNewConnection(korvel::XPCConnection&) override {
    const auto fired = std::make_shared<std::promise<void>>();
    const auto timer = dispatch.makeTimer(queue);
    timer->setEventHandler([fired] { fired->set_value(); });
    timer->schedule(0.01, std::nullopt, 0);
    timer->resume();
    fired->get_future().wait();
    decisions.add("decided");
    return false;
  }

  Notes decisions;

 private:
  korvel::Dispatch& dispatch;
  std::shared_ptr<korvel::WorkQueue> queue;
};

}  // namespace

// The alarm of the timer must not wait for the thread on which the delegate waits for it.
TEST(DecisionTest, MayWaitForATimer) {
  const auto rig = makeRemoteRigWhoseDecisionsMayWait("newer-keys");
  const auto delegate = std::make_shared<WaitingDelegate>(rig->platform().dispatch);
  const auto listener = rig->platform().xpc.makeListener(korvel::KorvelHelperMachServiceName);
  listener->setDelegate(delegate);
  listener->resume();
  const auto client = rig->connect("app");
  EXPECT_TRUE(rig->until([&] { return delegate->decisions.text() == "decided "; }, 5));
}

}  // namespace virtualmac
