#pragma once

namespace processtests {

/// Runs a machine with an application connected for so many virtual hours at 600 times real time,
/// the adapter coming and going, and expects: the battery never charges beyond its limit, the
/// helper never dies, and neither it nor the machine grows in memory, descriptors or threads.
void endure(double virtualHours);

}  // namespace processtests
