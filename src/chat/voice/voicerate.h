#pragma once

// Playback speeds of voice messages: 1.0 → 1.5 → 2.0 → 1.0.
namespace VoiceRate {

// The next speed after rate: 2.0 or more goes back to 1.0, 1.5 or more to 2.0, else 1.5.
double next(double rate);

} // namespace VoiceRate
