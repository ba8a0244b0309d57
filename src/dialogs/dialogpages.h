// Page and row helpers shared by the record dialogs: a tab of rows in a
// scroll area, a titled group, and the three-number rows of sizes and points.
#pragma once

#include <QString>
#include <cstdint>

#include "recordform.h"

class QDialog;
class QFormLayout;
class QTabWidget;
class QWidget;
struct IMAGE_FILTER_CFG;
struct IMAGE_TRANSFORMATION_CFG;

namespace DialogPages {

QFormLayout* addPage(QTabWidget* tabs, const QString& title);
QFormLayout* addGroup(QFormLayout* page, const QString& title);
// One row of spin boxes, a component each in the record's order; each box
// is named "label X", "label Y"...
void addTriple(RecordForm& form, QFormLayout* rows, const QString& label, const int32_t* first,
               int count = 3, int minimum = -1000000);

}  // namespace DialogPages

namespace DialogPages {
// The rows of an image or field transformation.
void addTransformation(RecordForm& form, QFormLayout* rows, const IMAGE_TRANSFORMATION_CFG& t);
// The rows of the image filters, as the pre-processing and the tracker share them.
void addImageFilters(RecordForm& form, QFormLayout* rows, const IMAGE_FILTER_CFG& p);
// A standard "OK"/"Cancel" row under `content`, as the dialog's layout.
void finishDialog(QDialog* dialog, QWidget* content);
}  // namespace DialogPages
