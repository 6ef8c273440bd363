#include "Road.h"

const std::vector<Road>& Roads()
{
    static const std::vector<Road> roads = {
        {"start without a piano", StartWithoutPiano},
        {"start-up", StartUp, true},
        {"read-back", ReadBack, true},
        {"stand-alone update", StandAloneUpdate, true},
        {"server update", ServerUpdate, true},
        {"bridge", Bridge},
        {"search", Search},
        {"backup", Backup},
        {"restore", Restore},
        {"restore over 64 KiB", LargeRestore},
    };
    return roads;
}
