// Working settings that the definition file carries beside the cell: the mesh settings of the
// numerical panel and the settings of the Mott-Schottky analysis.
#pragma once

namespace tervo {

struct MeshSettings {
    int recalculateMesh = 0;          // 0 fixed mesh, 1 adaptive mesh
    double maximumRatio = 1.5;        // a ratio at or above this refines the interval (1.1 .. 3.0)
    double minimumRatio = 1.05;       // a product of ratios at or below this removes a point (1.0 .. 1.3)
    double generationLimit = 1e-3;    // microA/cm2
    double recombinationLimit = 1e-3; // microA/cm2
};
extern MeshSettings meshSettings;

// Settings of the Mott-Schottky analysis (`NW`).
struct MottSchottkySettings {
    double epsilon = 10.0; // relative permittivity used by the analysis
    int side = 0;          // -1 left side of the layer, +1 right side
    int layer = -1;        // counted from 0; -1 none chosen
    int fitPoints = 3;     // length of the sliding window
    int orderMiddle = 2;
    int orderEdges = 1;
    int defect = 0;
    int level = 0;
    int majorityN = 1;
};
extern MottSchottkySettings NW;

void InitialiseMeshSettings(MeshSettings& m);
void InitialiseMottSchottkySettings(MottSchottkySettings& nw);

} // namespace tervo
