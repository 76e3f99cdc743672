#pragma once

namespace virtualmac {

/// The program `korvel-app`.
int runKorvelApp(int argc, char** argv);

}  // namespace virtualmac
