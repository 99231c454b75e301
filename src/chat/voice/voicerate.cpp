#include "voicerate.h"

namespace VoiceRate {

double next(double rate)
{
    if (rate >= 2.0)
        return 1.0;
    if (rate >= 1.5)
        return 2.0;
    return 1.5;
}

} // namespace VoiceRate
