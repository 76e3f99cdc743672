#pragma once

#include <string>

namespace virtualmac {

/// The program `korvel-app`, built from `commit`.
int runKorvelApp(int argc, char** argv, const std::string& commit);

}  // namespace virtualmac
