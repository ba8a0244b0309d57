// Every record dialog: each control moves bytes of its own field and no
// other control's, and a record read from the controls comes back bytewise
// through a fresh dialog.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleValidator>
#include <QLineEdit>
#include <QSpinBox>

#include <functional>
#include <memory>
#include <set>

#include "imagepreprocessdlg.h"
#include "offscreen_app.h"
#include "pivcalib2cdlg.h"
#include "pivpostprocessdlg.h"
#include "pivprobedlg.h"
#include "pivsetupdlg.h"
#include "ptvparamsdlg.h"

namespace {

// The controls a user edits, in no particular order; a spin box's own line
// edit and a disabled control are not among them.
std::vector<QWidget*> Controls(QWidget* dialog) {
    std::vector<QWidget*> list;
    for (QWidget* w : dialog->findChildren<QWidget*>()) {
        const bool spinEdit = qobject_cast<QAbstractSpinBox*>(w->parentWidget()) != nullptr;
        if (!w->isEnabledTo(dialog) || (qobject_cast<QLineEdit*>(w) && spinEdit)) continue;
        if (qobject_cast<QCheckBox*>(w) || qobject_cast<QSpinBox*>(w) ||
            qobject_cast<QLineEdit*>(w) || qobject_cast<QComboBox*>(w))
            list.push_back(w);
    }
    return list;
}

// A value the control did not hold: numbers move by 1.5, texts get a name.
void Perturb(QWidget* w, int k) {
    if (auto* box = qobject_cast<QCheckBox*>(w)) box->setChecked(!box->isChecked());
    if (auto* spin = qobject_cast<QSpinBox*>(w))
        spin->setValue(spin->value() < spin->maximum() ? spin->value() + 1 : spin->value() - 1);
    if (auto* combo = qobject_cast<QComboBox*>(w))
        combo->setCurrentIndex((combo->currentIndex() + 1) % combo->count());
    if (auto* edit = qobject_cast<QLineEdit*>(w))
        edit->setText(qobject_cast<const QDoubleValidator*>(edit->validator())
                          ? QString::number(edit->text().toDouble() + 1.5)
                          : QStringLiteral("t%1").arg(k));
}

struct DialogCase {
    const char* name;
    int fields;  // counted by hand from the record's declaration
    std::function<QWidget*()> make;
    std::function<QByteArray(QWidget*)> read;
    std::function<void(QWidget*, const QByteArray&)> write;
};

template <class Dialog, class Record>
DialogCase Case(const char* name, int fields) {
    return {name, fields, [] { return new Dialog; },
            [](QWidget* d) {
                const Record r = static_cast<Dialog*>(d)->record();
                return QByteArray(reinterpret_cast<const char*>(&r), sizeof r);
            },
            [](QWidget* d, const QByteArray& bytes) {
                Record r;
                std::memcpy(static_cast<void*>(&r), bytes.constData(), sizeof r);
                static_cast<Dialog*>(d)->setRecord(r);
            }};
}

}  // namespace

TEST(RecordDialogs, EachControlOwnsOneFieldAndRecordsSurviveAFreshDialog) {
    EnsureOffscreenApplication();
    // Evaluation 94 + two validations of 47 + conversion 16 + differentiation 4;
    // two images of 30 + 20 filters + 11 transformation; post-processing
    // 8 combine + 11 transformation + 8; calibration 2; probe: the 14 shown;
    // tracking 9 of its own + background 2 + 20 filters.
    const DialogCase cases[] = {
        Case<PivSetupDlg, PIVSETUP_CFG>("setup", 94 + 2 * 47 + 16 + 4),
        Case<ImagePreProcessDlg, IMAGEPROC_CFG>("images", 2 * (30 + 20 + 11)),
        Case<PIVPostProcessDlg, POSTPROCESS_CFG>("post-processing", 8 + 11 + 8),
        Case<PIVCalib2CDlg, CALIB2C_CFG>("calibration", 2),
        Case<PivProbeDlg, PIV_VECTOR>("probe", 14),
        Case<PTVParamsDlg, PTV_PARAMS>("tracking", 9 + 2 + 20),
    };
    for (const DialogCase& c : cases) {
        SCOPED_TRACE(c.name);
        std::unique_ptr<QWidget> dlg(c.make());
        const QByteArray base = c.read(dlg.get());
        const std::vector<QWidget*> controls = Controls(dlg.get());
        EXPECT_EQ(int(controls.size()), c.fields);
        std::set<int> owned;
        for (size_t i = 0; i < controls.size(); ++i) {
            c.write(dlg.get(), base);
            Perturb(controls[i], int(i));
            const QByteArray changed = c.read(dlg.get());
            int moved = 0;
            for (int b = 0; b < base.size(); ++b)
                if (changed[b] != base[b]) {
                    ++moved;
                    EXPECT_TRUE(owned.insert(b).second) << "byte " << b << " has two controls";
                }
            EXPECT_GT(moved, 0) << "control " << i << " reaches no field";
        }
        c.write(dlg.get(), base);
        for (size_t i = 0; i < controls.size(); ++i) Perturb(controls[i], int(i));
        const QByteArray all = c.read(dlg.get());
        std::unique_ptr<QWidget> fresh(c.make());
        c.write(fresh.get(), all);
        EXPECT_EQ(c.read(fresh.get()), all);
    }
}
