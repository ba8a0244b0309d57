// Image2DItem: an ImageItem that shows an Image2D of any pixel type. It holds
// a reference to the image, so the image lives as long as it is shown.
#pragma once

#include "imageitem.h"

class Image2D;

class Image2DItem : public ImageItem {
public:
    enum { Type = UserType + 0x102 };

    explicit Image2DItem(QGraphicsItem* parent = nullptr);
    ~Image2DItem() override;

    int type() const override { return Type; }

    // Takes a reference to `image` (null shows nothing) and rebuilds the indices.
    void updateImage2D(Image2D* image);
    Image2D* image2D() const { return m_source; }

protected:
    bool sourceInfo(int* width, int* height, ImageType* type) const override;
    bool sourceRange(double* low, double* high) override;
    int convertToIndices(QImage& image) override;

    Image2D* m_source = nullptr;
};
