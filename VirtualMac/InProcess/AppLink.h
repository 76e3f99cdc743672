#pragma once

#include <memory>

#include "VirtualMac/InProcess/AppClient.h"
#include "VirtualMac/InProcess/ServiceEndpoint.h"

namespace virtualmac {

struct AppClient::Link {
  std::shared_ptr<ClientEnd> end;
};

}  // namespace virtualmac
