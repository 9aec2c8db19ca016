// User form and file form of a cell: the units of each kind of quantity, the uniform rule for layers
// of fixed composition, and the round trip.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "cell/expect_values.h"
#include "cell/working_settings.h"
#include "setup/parameter_sets.h"

namespace tervo {
namespace {

using test::ExpectDoubles;

void Graded(Profile& p, int law, double a, double b, double par1, double par2, int dependence) {
    p.law = law;
    p.dependence = dependence;
    p.pureA = p.leftValue = a;
    p.pureB = p.rightValue = b;
    p.lawPar1 = par1;
    p.lawPar2 = par2;
    SetProfileScaleParameters(p);
}

// A user-form cell with graded layers, multi-level defects, interface defects and contacts.
CellDefinition UserCell() {
    CellDefinition cell;
    InitialiseParameterset2(cell);
    cell.numberOfLayers = 3;
    for (int i = 0; i < 3; ++i) {
        LayerParameters& layer = cell.layer[static_cast<size_t>(i)];
        layer.compositionType = 1; // graded: no uniform rule
        MaterialParameters& m = layer.material;
        m.d = 0.5 + i; // µm
        Graded(m.Eg, LAW_LINEAR, 1.1, 1.6, 0, 0, DEP_COMPOSITION);
        Graded(m.Nc, LAW_PARABOLIC, 2e18, 3e18, 1e17, 5e16, DEP_COMPOSITION); // both parameters carry units
        Graded(m.Nd, LAW_EXPONENTIAL, 1e16, 1e18, 1e15, 0.2, DEP_POSITION);   // only lawPar1 does
        Graded(m.Na, LAW_PARABOLIC2, 1e16, 3e16, 0.3, 5e15, DEP_POSITION);    // only lawPar2 does
        Graded(m.mu_n, LAW_LINEAR, 100, 50, 0.3, 0.4, DEP_COMPOSITION);
        Graded(m.v_th_p, LAW_UNIFORM, 1e7, 1e7, 0, 0, DEP_COMPOSITION);
        Graded(m.K_rad, LAW_UNIFORM, 1e-10, 1e-10, 0, 0, DEP_COMPOSITION);
        Graded(m.c_p_auger, LAW_UNIFORM, 1e-30, 1e-30, 0, 0, DEP_COMPOSITION);
        m.A_pureA = 1e5;
        m.B_pureB = 2e4;
    }
    LayerParameters& middle = cell.layer[1];
    middle.srhteller = 2;
    DefectLevels& multi = middle.srh[1];
    for (int l = 0; l < 3; ++l) {
        BulkRecombinationParameters& level = multi[static_cast<size_t>(l)];
        level.numberOfLevels = 3;
        level.type = DEFECT_MULTILEVEL;
        level.sigma_n = 1e-15 * (l + 1);
        level.sigma_p = 2e-16;
        level.Lkar = 0.05;
        level.Nleft = 1e14;
        level.Nright = 3e14;
        level.profile = SPATIAL_LINEAR;
        Graded(level.Nt, LAW_LINEAR, 1e14, 3e14, 0, 0, DEP_POSITION);
    }
    multi[2].Nt.law = LAW_TABLE;
    multi[2].Nt.xlist = {0, 0.5, 1.5};
    multi[2].Nt.ylist = {1e14, 2e14, 5e14};
    multi[2].Nt.npoints = 3;
    multi[0].optCaptElectrons.sigmas = {1e-17, 2e-17};
    multi[0].optCaptElectrons.wavelengths = {900, 1000};
    multi[0].optCaptElectrons.count = 2;
    middle.meta[0].sigma_acc_n = 4e-15;
    Graded(middle.meta[0].Nt, LAW_UNIFORM, 7e15, 7e15, 0, 0, DEP_COMPOSITION);

    InterfaceParameters& ifc = cell.interface[0];
    ifc.numberOfDefects = 2;
    ifc.defect[1].sigma_pright = 3e-14;
    ifc.defect[1].N = 2e11;
    ifc.defect[1].Ntotal = 4e11;

    cell.leftContact.Sn = 1e7;
    cell.leftContact.Sp = 2e3;
    cell.rightContact.Sn = 5e2;
    cell.rightContact.Sp = 1e7;
    UpdateThicknessInProfiles_Cell(cell);
    return cell;
}

// Every number that the unit conversions touch, in one list: thickness, profiles and absorption of
// each layer, its defect levels and metastable defects, the interface defects and the contacts.
std::vector<double> Numbers(const CellDefinition& c) {
    std::vector<double> v;
    auto profile = [&v](const Profile& p) {
        v.insert(v.end(), {p.pureA, p.pureB, p.lawPar1, p.lawPar2, p.leftValue, p.rightValue, p.thickness});
        v.insert(v.end(), p.ylist.begin(), p.ylist.end());
    };
    for (int i = 0; i < c.numberOfLayers; ++i) {
        const LayerParameters& layer = c.layer[static_cast<size_t>(i)];
        v.insert(v.end(), {layer.material.d, layer.material.A_pureA, layer.material.B_pureB});
        for (const Profile* p : MaterialProfiles(layer.material)) profile(*p);
        for (const DefectLevels& defect : layer.srh)
            for (const BulkRecombinationParameters& x : defect) {
                v.insert(v.end(), {x.sigma_n, x.sigma_p, x.Lkar, x.Nleft, x.Nright});
                profile(x.Nt);
                v.insert(v.end(), x.optCaptElectrons.sigmas.begin(), x.optCaptElectrons.sigmas.end());
            }
        for (const MetaStableDefectParameters& m : layer.meta) {
            v.push_back(m.sigma_acc_n);
            profile(m.Nt);
        }
    }
    for (const InterfaceParameters& ifc : c.interface)
        for (const InterfaceRecombinationParameters& x : ifc.defect)
            v.insert(v.end(), {x.sigma_nleft, x.sigma_pright, x.N, x.Ntotal});
    v.insert(v.end(), {c.leftContact.Sn, c.leftContact.Sp, c.rightContact.Sn, c.rightContact.Sp});
    return v;
}

void ExpectSameCell(const CellDefinition& a, const CellDefinition& b) {
    const std::vector<double> x = Numbers(a), y = Numbers(b);
    ASSERT_EQ(x.size(), y.size());
    for (size_t k = 0; k < x.size(); ++k) EXPECT_NEAR(x[k], y[k], 1e-12 * std::fabs(y[k])) << "number " << k;
}

TEST(UnitForms, UserToFileFormConvertsEachKindOfQuantityAndTheRoundTripsLeaveTheCellUnchanged) {
    const MottSchottkySettings saved = NW;
    const CellDefinition original = UserCell();
    parameterset2_to_1(original);
    const CellDefinition& f = parameterset1.cellParas;
    const MaterialParameters& m = f.layer[1].material;
    // Energies keep their unit; the background density of the exponential law and the extreme value
    // of the law with an inner extremum take the unit of the property, a length or a position does
    // not; the parameters of the linear law carry no unit.
    ExpectDoubles(m.d, 1.5e-6, m.Eg.pureB, 1.6, m.Nc.pureA, 2e24, m.Nc.lawPar1, 1e23, m.Nc.lawPar2, 5e22,
                  m.Nd.rightValue, 1e24, m.Nd.lawPar1, 1e21, m.Nd.lawPar2, 0.2, m.Na.lawPar1, 0.3,
                  m.Na.lawPar2, 5e21, m.mu_n.leftValue, 0.01, m.mu_n.lawPar1, 0.3, m.v_th_p.leftValue, 1e5,
                  m.K_rad.rightValue, 1e-16, m.c_p_auger.pureA, 1e-42, m.A_pureA, 1e7, m.B_pureB, 2e6,
                  m.Nc.thickness, 1.5e-6);

    const DefectLevels& multi = f.layer[1].srh[1];
    // Table positions stay in µm; a fourth level that is not in use keeps its default.
    ExpectDoubles(multi[1].sigma_n, 2e-19, multi[2].Nt.ylist[2], 5e20, multi[2].Nt.xlist[2], 1.5,
                  multi[0].Nt.leftValue, 1e20, multi[0].Lkar, 5e-8, multi[0].Nright, 3e20,
                  multi[0].optCaptElectrons.sigmas[1], 2e-21, multi[0].optCaptElectrons.wavelengths[1], 1000,
                  multi[3].sigma_n, 1e-19, f.layer[1].meta[0].sigma_acc_n, 4e-19, f.layer[1].meta[0].Nt.pureA,
                  7e21);

    // The third interface defect is not in use: untouched.
    ExpectDoubles(f.interface[0].defect[1].sigma_pright, 3e-18, f.interface[0].defect[1].N, 2e15,
                  f.interface[0].defect[1].Ntotal, 4e15, f.interface[0].defect[2].N, 1e10);

    ExpectDoubles(f.leftContact.Sn, 1e5, f.rightContact.Sn, 5);

    // User form -> file form -> user form, and file form -> user form -> file form.
    CellDefinition back;
    parameterset1_to_2(back, parameterset1);
    ExpectSameCell(back, original);
    const InputParameters fileForm = parameterset1;
    parameterset2_to_1(back);
    ExpectSameCell(parameterset1.cellParas, fileForm.cellParas);
    NW = saved;
}

TEST(UnitForms, LayerOfFixedCompositionGetsUniformPropertiesButKeepsPositionGrading) {
    const MottSchottkySettings saved = NW;
    CellDefinition cell = UserCell();
    cell.layer[0].compositionType = 20; // pure B
    cell.layer[2].compositionType = 0;  // pure A
    parameterset2_to_1(cell);
    const MaterialParameters& b = parameterset1.cellParas.layer[0].material;
    // Nd depends on position: its grading is kept.
    ExpectDoubles(b.Eg.leftValue, 1.6, b.Eg.rightValue, 1.6, b.Nc.leftValue, 3e24, b.mu_n.rightValue, 50e-4,
                  b.Nd.leftValue, 1e22, b.Nd.rightValue, 1e24);
    const MaterialParameters& a = parameterset1.cellParas.layer[2].material;
    ExpectDoubles(a.Eg.rightValue, 1.1, a.Nc.rightValue, 2e24);
    // The graded middle layer is left alone.
    ExpectDoubles(parameterset1.cellParas.layer[1].material.Eg.rightValue, 1.6,
                  parameterset1.cellParas.layer[1].material.Eg.leftValue, 1.1);
    NW = saved;
}

} // namespace
} // namespace tervo
