// User form and file form of a cell: the units of each kind of quantity, the uniform rule for layers
// of fixed composition, and the round trip.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

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

TEST(UnitForms, UserToFileFormConvertsEachKindOfQuantity) {
    const MottSchottkySettings saved = NW;
    parameterset2_to_1(UserCell());
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
    NW = saved;
}

// Compares every converted number of two cells, relatively.
void ExpectSameProfile(const Profile& a, const Profile& b, const std::string& what) {
    for (auto [x, y, name] : {std::tuple{a.pureA, b.pureA, "pureA"},
                              {a.pureB, b.pureB, "pureB"},
                              {a.lawPar1, b.lawPar1, "lawPar1"},
                              {a.lawPar2, b.lawPar2, "lawPar2"},
                              {a.leftValue, b.leftValue, "leftValue"},
                              {a.rightValue, b.rightValue, "rightValue"},
                              {a.thickness, b.thickness, "thickness"}})
        EXPECT_NEAR(x, y, 1e-12 * std::fabs(y)) << what << " " << name;
    ASSERT_EQ(a.ylist.size(), b.ylist.size()) << what;
    for (size_t k = 0; k < a.ylist.size(); ++k)
        EXPECT_NEAR(a.ylist[k], b.ylist[k], 1e-12 * b.ylist[k]) << what;
}

void ExpectSameCell(const CellDefinition& a, const CellDefinition& b) {
    ASSERT_EQ(a.numberOfLayers, b.numberOfLayers);
    auto near = [](double x, double y) { return std::fabs(x - y) <= 1e-12 * std::fabs(y); };
    for (int i = 0; i < a.numberOfLayers; ++i) {
        const auto I = static_cast<size_t>(i);
        const MaterialParameters &ma = a.layer[I].material, &mb = b.layer[I].material;
        EXPECT_TRUE(near(ma.d, mb.d)) << "d of layer " << i;
        const auto pa = MaterialProfiles(ma), pb = MaterialProfiles(mb);
        for (size_t k = 0; k < pa.size(); ++k)
            ExpectSameProfile(*pa[k], *pb[k], "layer profile " + std::to_string(k));
        EXPECT_TRUE(near(ma.A_pureA, mb.A_pureA) && near(ma.B_pureB, mb.B_pureB))
            << "absorption of layer " << i;
        for (size_t d = 0; d < MAX_DEFECTS; ++d)
            for (size_t l = 0; l < MAX_LEVELS; ++l) {
                const BulkRecombinationParameters &x = a.layer[I].srh[d][l], &y = b.layer[I].srh[d][l];
                EXPECT_TRUE(near(x.sigma_n, y.sigma_n) && near(x.sigma_p, y.sigma_p) &&
                            near(x.Lkar, y.Lkar) && near(x.Nleft, y.Nleft) && near(x.Nright, y.Nright))
                    << "level " << d << "," << l << " of layer " << i;
                ExpectSameProfile(x.Nt, y.Nt, "Nt");
                ASSERT_EQ(x.optCaptElectrons.sigmas.size(), y.optCaptElectrons.sigmas.size());
                for (size_t k = 0; k < x.optCaptElectrons.sigmas.size(); ++k)
                    EXPECT_TRUE(near(x.optCaptElectrons.sigmas[k], y.optCaptElectrons.sigmas[k]));
            }
        for (size_t k = 0; k < MAX_META; ++k) {
            EXPECT_TRUE(near(a.layer[I].meta[k].sigma_acc_n, b.layer[I].meta[k].sigma_acc_n));
            ExpectSameProfile(a.layer[I].meta[k].Nt, b.layer[I].meta[k].Nt, "meta Nt");
        }
    }
    for (size_t i = 0; i < MAX_INTERFACES; ++i)
        for (size_t d = 0; d < MAX_IFDEFECTS; ++d) {
            const InterfaceRecombinationParameters &x = a.interface[i].defect[d],
                                                   &y = b.interface[i].defect[d];
            EXPECT_TRUE(near(x.sigma_nleft, y.sigma_nleft) && near(x.sigma_pright, y.sigma_pright) &&
                        near(x.N, y.N) && near(x.Ntotal, y.Ntotal))
                << "interface " << i << " defect " << d;
        }
    EXPECT_TRUE(near(a.leftContact.Sn, b.leftContact.Sn) && near(a.leftContact.Sp, b.leftContact.Sp));
    EXPECT_TRUE(near(a.rightContact.Sn, b.rightContact.Sn) && near(a.rightContact.Sp, b.rightContact.Sp));
}

TEST(UnitForms, UserFormToFileFormAndBackLeavesTheCellUnchanged) {
    const MottSchottkySettings saved = NW;
    const CellDefinition original = UserCell();
    parameterset2_to_1(original);
    CellDefinition back;
    parameterset1_to_2(back, parameterset1);
    ExpectSameCell(back, original);

    // And file form -> user form -> file form.
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
