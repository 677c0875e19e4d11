// What the portable clock code needs from the platform layer.
#pragma once

namespace mirel {

// Takes the zero of System::getTime(): called once, by the System constructor at load.
void startClock();

}  // namespace mirel
