#include "cell/working_settings.h"

namespace tervo {

MeshSettings meshSettings;
MottSchottkySettings NW;

void InitialiseMeshSettings(MeshSettings& m) {
    m = MeshSettings{};
}

void InitialiseMottSchottkySettings(MottSchottkySettings& nw) {
    nw = MottSchottkySettings{};
}

} // namespace tervo
