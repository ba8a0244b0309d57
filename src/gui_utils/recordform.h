// Controls bound to the fields of one plain record. A dialog that holds a
// record builds one control per field through this class; `load` fills every
// control from a record and `store` writes every control back, so a record
// read from the controls differs from the one loaded only where the user
// changed something.
#pragma once

#include <QString>
#include <QStringList>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

class QFormLayout;
class QWidget;

// Each control is named after its label, so that it can be found by it.
class RecordForm {
public:
    // `prototype` is the record the field pointers below point into; only the
    // offsets of those fields are kept, so any record of that type can be
    // loaded and stored later.
    explicit RecordForm(const void* prototype) : m_prototype(static_cast<const char*>(prototype)) {}

    QWidget* check(QFormLayout* form, const QString& label, const bool* field);
    QWidget* integer(QFormLayout* form, const QString& label, const int32_t* field,
                     int minimum = -1000000, int maximum = 1000000);
    // Decimal numbers are shown with as many digits as they need to read back
    // unchanged, never rounded to a spin box's decimals: accepting the dialog
    // must not move a value.
    QWidget* real(QFormLayout* form, const QString& label, const double* field);
    QWidget* real(QFormLayout* form, const QString& label, const float* field);
    // An 0xAARRGGBB colour, picked with the toolkit's colour dialog.
    QWidget* colour(QFormLayout* form, const QString& label, const uint32_t* field);
    // A fixed buffer of `size` bytes holding Latin-1 text; the rest of the
    // buffer is cleared, so records holding the same text compare equal.
    QWidget* text(QFormLayout* form, const QString& label, const char* field, int size);
    // A list whose entry k stands for the value first + k.
    QWidget* choice(QFormLayout* form, const QString& label, const int32_t* field,
                    const QStringList& names, int first = 0);
    // A list whose entry k stands for values[k].
    QWidget* choice(QFormLayout* form, const QString& label, const int32_t* field,
                    const QStringList& names, const std::vector<int32_t>& values);

    void load(const void* record) const;
    void store(void* record) const;
    int count() const { return static_cast<int>(m_bindings.size()); }

private:
    struct Binding {
        std::function<void(const char*)> load;
        std::function<void(char*)> store;
    };
    template <class T>
    QWidget* number(QFormLayout* form, const QString& label, const T* field);
    std::ptrdiff_t offsetOf(const void* field) const {
        return static_cast<const char*>(field) - m_prototype;
    }

    const char* m_prototype;
    std::vector<Binding> m_bindings;
};
