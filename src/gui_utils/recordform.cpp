#include "recordform.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDoubleValidator>
#include <QFormLayout>
#include <QLineEdit>
#include <QSpinBox>
#include <QToolButton>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

namespace {

template <class T>
T& at(char* base, std::ptrdiff_t offset) {
    return *reinterpret_cast<T*>(base + offset);
}

template <class T>
const T& at(const char* base, std::ptrdiff_t offset) {
    return *reinterpret_cast<const T*>(base + offset);
}

void showColour(QToolButton* button, uint32_t argb) {
    button->setProperty("argb", static_cast<uint>(argb));
    const QColor c = QColor::fromRgba(argb);
    button->setText(QString("#%1").arg(argb, 8, 16, QChar('0')));
    button->setStyleSheet(QString("background-color: rgb(%1, %2, %3); color: %4")
                              .arg(c.red())
                              .arg(c.green())
                              .arg(c.blue())
                              .arg(c.lightness() > 127 ? "black" : "white"));
}

// The shortest text that reads back as the same number: 0.15, not 0.1499...
template <class T>
QString shortest(T value) {
    const int most = sizeof(T) == sizeof(float) ? 9 : 17;
    for (int digits = 6; digits < most; ++digits) {
        const QString text = QString::number(value, 'g', digits);
        if (static_cast<T>(text.toDouble()) == value) return text;
    }
    return QString::number(value, 'g', most);
}

QLineEdit* numberEdit(QFormLayout* form, const QString& label, int digits) {
    auto* edit = new QLineEdit;
    auto* validator = new QDoubleValidator(edit);
    validator->setNotation(QDoubleValidator::ScientificNotation);
    validator->setDecimals(digits);
    validator->setLocale(QLocale::c());
    edit->setValidator(validator);
    form->addRow(label, edit);
    edit->setObjectName(label);
    return edit;
}

}  // namespace

QWidget* RecordForm::check(QFormLayout* form, const QString& label, const bool* field) {
    auto* box = new QCheckBox(label);
    form->addRow(box);
    box->setObjectName(label);
    const auto off = offsetOf(field);
    m_bindings.push_back({[box, off](const char* r) { box->setChecked(at<bool>(r, off)); },
                          [box, off](char* r) { at<bool>(r, off) = box->isChecked(); }});
    return box;
}

QWidget* RecordForm::integer(QFormLayout* form, const QString& label, const int32_t* field,
                             int minimum, int maximum) {
    auto* spin = new QSpinBox;
    spin->setRange(minimum, maximum);
    form->addRow(label, spin);
    spin->setObjectName(label);
    const auto off = offsetOf(field);
    // A stored value outside the control's range is kept unless the user edits it.
    auto original = std::make_shared<int32_t>(0);
    m_bindings.push_back(
        {[spin, off, original](const char* r) {
             *original = at<int32_t>(r, off);
             spin->setValue(*original);
         },
         [spin, off, original](char* r) {
             const bool outside = *original < spin->minimum() || *original > spin->maximum();
             const bool untouched =
                 spin->value() == qBound(spin->minimum(), *original, spin->maximum());
             at<int32_t>(r, off) = outside && untouched ? *original : spin->value();
         }});
    return spin;
}

template <class T>
QWidget* RecordForm::number(QFormLayout* form, const QString& label, const T* field) {
    QLineEdit* edit = numberEdit(form, label, sizeof(T) == sizeof(float) ? 9 : 17);
    const auto off = offsetOf(field);
    m_bindings.push_back({[edit, off](const char* r) { edit->setText(shortest(at<T>(r, off))); },
                          [edit, off](char* r) {
                              bool ok = false;
                              const double v = edit->text().toDouble(&ok);
                              // A finite number beyond the field's type is refused, not cast.
                              const bool fits =
                                  !std::isfinite(v) || std::abs(v) <= std::numeric_limits<T>::max();
                              if (ok && fits) at<T>(r, off) = static_cast<T>(v);
                          }});
    return edit;
}

QWidget* RecordForm::real(QFormLayout* form, const QString& label, const double* field) {
    return number(form, label, field);
}

QWidget* RecordForm::real(QFormLayout* form, const QString& label, const float* field) {
    return number(form, label, field);
}

QWidget* RecordForm::colour(QFormLayout* form, const QString& label, const uint32_t* field) {
    auto* button = new QToolButton;
    button->setMinimumWidth(96);
    QObject::connect(button, &QToolButton::clicked, button, [button, label]() {
        const QColor current = QColor::fromRgba(button->property("argb").toUInt());
        const QColor picked = QColorDialog::getColor(current, button->window(), label,
                                                     QColorDialog::ShowAlphaChannel);
        if (picked.isValid()) showColour(button, picked.rgba());
    });
    form->addRow(label, button);
    button->setObjectName(label);
    const auto off = offsetOf(field);
    m_bindings.push_back(
        {[button, off](const char* r) { showColour(button, at<uint32_t>(r, off)); },
         [button, off](char* r) { at<uint32_t>(r, off) = button->property("argb").toUInt(); }});
    return button;
}

QWidget* RecordForm::text(QFormLayout* form, const QString& label, const char* field, int size) {
    auto* edit = new QLineEdit;
    edit->setMaxLength(size - 1);
    form->addRow(label, edit);
    edit->setObjectName(label);
    const auto off = offsetOf(field);
    m_bindings.push_back({[edit, off, size](const char* r) {
                              edit->setText(
                                  QString::fromLatin1(r + off, qstrnlen(r + off, size - 1)));
                          },
                          [edit, off, size](char* r) {
                              const QByteArray bytes = edit->text().toLatin1().left(size - 1);
                              std::memset(r + off, 0, size);
                              std::memcpy(r + off, bytes.constData(), bytes.size());
                          }});
    return edit;
}

QWidget* RecordForm::choice(QFormLayout* form, const QString& label, const int32_t* field,
                            const QStringList& names, int first) {
    std::vector<int32_t> values(size_t(names.size()));
    for (size_t k = 0; k < values.size(); ++k) values[k] = first + int32_t(k);
    return choice(form, label, field, names, values);
}

QWidget* RecordForm::choice(QFormLayout* form, const QString& label, const int32_t* field,
                            const QStringList& names, const std::vector<int32_t>& values) {
    auto* combo = new QComboBox;
    combo->addItems(names);
    form->addRow(label, combo);
    combo->setObjectName(label);
    const auto off = offsetOf(field);
    // A value the list does not hold is kept as it is until the user picks one.
    auto original = std::make_shared<int32_t>(0);
    m_bindings.push_back({[combo, off, values, original](const char* r) {
                              *original = at<int32_t>(r, off);
                              // A value outside the list shows no entry (index -1).
                              const auto it = std::find(values.begin(), values.end(), *original);
                              combo->setCurrentIndex(it == values.end() ? -1
                                                                        : int(it - values.begin()));
                          },
                          [combo, off, values, original](char* r) {
                              const int index = combo->currentIndex();
                              at<int32_t>(r, off) = index < 0 ? *original : values[size_t(index)];
                          }});
    return combo;
}

void RecordForm::load(const void* record) const {
    for (const Binding& b : m_bindings) b.load(static_cast<const char*>(record));
}

void RecordForm::store(void* record) const {
    for (const Binding& b : m_bindings) b.store(static_cast<char*>(record));
}
