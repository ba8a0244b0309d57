// ImagePairItem: the two frames of a pair in one picture: either frame, their
// difference, their quotient or a colour blend (first frame red, second
// cyan, so that matching particles show white). The second frame may be
// shifted, and a background image may be subtracted from each frame.
#pragma once

#include <vector>

#include "image2ditem.h"

class ImagePairItem : public Image2DItem {
public:
    enum { Type = UserType + 0x103 };
    enum CombineMode {
        SHOW_FIRST = 0,
        SHOW_SECOND = 1,
        SHOW_DIFFERENCE = 2,
        SHOW_QUOTIENT = 3,
        SHOW_PAIR_COLOR = 4,
    };
    // Blend levels per frame: the 256 indices are 16 x 16 colours.
    static constexpr int kPairLevels = 16;

    explicit ImagePairItem(QGraphicsItem* parent = nullptr);
    ~ImagePairItem() override;

    int type() const override { return Type; }

    // Takes references to both frames (either may be null).
    void updateImages(Image2D* first, Image2D* second);
    // Images subtracted from each frame, clipped at zero; null for none.
    // An image of another size than its frame is ignored.
    void setBackgrounds(Image2D* first, Image2D* second);
    // Modes outside CombineMode show the first frame.
    void setCombineMode(int mode);
    int combineMode() const { return m_mode; }
    // The second frame moves by (x, y) pixels; uncovered pixels count as 0.
    void setImageOffset(int x, int y);

    void applyLUT() override;

protected:
    bool sourceInfo(int* width, int* height, ImageType* type) const override;
    bool sourceRange(double* low, double* high) override;
    int convertToIndices(QImage& image) override;

    // Difference a - b, its zero in the middle of the table, full scale at
    // plus and minus the width of the intensity range.
    int convertDiffToBmpEx(QImage& image);
    // Quotient a / b, a ratio of 1 in the middle, 2 and above at the top.
    int convertQuotToBmp(QImage& image);
    int convertQuotToBmpEx(QImage& image);
    // 16 levels of each frame over the intensity range: index 16 a + b.
    int convertPairToBmpOp(QImage& image);

private:
    Image2D* shown() const;
    bool haveBackground() const { return m_background[0] || m_background[1]; }
    // Row y of both frames as float, backgrounds subtracted, the second
    // shifted by the offset; false when a frame is missing.
    bool readRows(int y, int width, bool withExtras);
    int quotient(QImage& image, bool withExtras);
    template <typename F>
    int forEachPixel(QImage& image, bool withExtras, F index);

    Image2D* m_second = nullptr;
    Image2D* m_background[2] = {nullptr, nullptr};
    int m_mode = SHOW_FIRST;
    int m_offsetX = 0, m_offsetY = 0;
    std::vector<float> m_rowA, m_rowB, m_rowTmp, m_rowBg;
};
