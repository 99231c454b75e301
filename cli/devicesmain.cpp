// halvenmark-cli-devices: the terminal client with the commands that use the machine's devices
// (calls, voice, video, the vault's clipboard and owner check). halvenmark-cli starts it in its
// own place for those commands.

#include "callcommands.h"
#include "climain.h"
#include "devicecommands.h"
#include "vaultcommands.h"
#include "videoprep.h"
#include "voicecommands.h"

int main(int argc, char **argv)
{
    static const DeviceCommands::Table devices{
        .call = CallCommands::call,
        .vault = VaultCommands::vault,
        .play = VoiceCommands::play,
        .record = VoiceCommands::record,
        .transcribe = VoiceCommands::transcribe,
        .sendVoice = VoiceCommands::sendVoice,
        .shrinkVideo = VideoPrep::shrink,
    };
    DeviceCommands::install(&devices);
    return CliMain::run(argc, argv);
}
