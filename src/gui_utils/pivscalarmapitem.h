// PIVScalarMapItem: a colour map of one scalar quantity of a vector field
// (magnitude, a component, vorticity, ...). The field is turned into an 8-bit
// image of table indices by PIV_Data2D::createScalarImage, shown through the
// item's table at the opacity of the contour record.
#pragma once

#include "image2ditem.h"
#include "piv_error.h"
#include "piv_plot.h"

class PIV_Data2D;

class PIVScalarMapItem : public Image2DItem {
public:
    enum { Type = UserType + 0x105 };

    explicit PIVScalarMapItem(QGraphicsItem* parent = nullptr);
    ~PIVScalarMapItem() override;

    int type() const override { return Type; }

    // Takes a reference to the field and recomputes the map.
    void updateData(PIV_Data2D* data);
    // A record equal bytewise to the stored one changes nothing; one that
    // differs only in its colours and opacity keeps the indices.
    void setContourCfg(const PIVPLOT::CONTOUR_CFG& cfg);
    const PIVPLOT::CONTOUR_CFG& contourCfg() const { return m_cfg; }

    // The indices of the field under the record; on failure the item hides.
    bool calculateNewContours();

    // A palette shorter than 256 spreads its entries over the whole table.
    void applyLUT() override;

protected:
    int convertToIndices(QImage& image) override;

private:
    void takeLutFromCfg();

    PIV_Data2D* m_data = nullptr;
    Image2D* m_scalar;
    PIVPLOT::CONTOUR_CFG m_cfg;
    PIVerror m_error{"ContourMap"};
};
