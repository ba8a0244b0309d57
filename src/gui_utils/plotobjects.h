// PlotObjects: the measuring and mask shapes (rectangle, ellipse, line,
// polygon, polyline) in image pixels with (0,0) at the top left, and the
// text file of blocks they are kept in. The same file serves the mask
// editor and the measuring objects of the plot scene.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "piv_types.h"

struct PLOT_RECT {
    float left, right, top, bottom;
};

class PlotObject {
public:
    enum Shape { UNDEFINED = 0, RECTANGLE, ELLIPSE, LINE, POLYGON, POLYLINE };

    virtual ~PlotObject() = default;
    virtual Shape shape() const { return UNDEFINED; }
    virtual std::unique_ptr<PlotObject> clone() const {
        return std::make_unique<PlotObject>(*this);
    }

    virtual void setWidth(float width) { m_rect.right = m_rect.left + width; }
    virtual void setHeight(float height) { m_rect.bottom = m_rect.top + height; }
    virtual void setRect(float left, float top, float width, float height);
    virtual void setPos(float x, float y);
    virtual FPOINT2D pos() const { return {m_rect.left, m_rect.top}; }
    // Writes the whole block, name line to closing brace.
    virtual void print(std::ostream& out) const;
    // Takes one line of a block split into tokens, the name at `index`;
    // false when the name is not this shape's.
    virtual bool setAttribute(const std::vector<std::string>& tokens, size_t index);

    const PLOT_RECT& rect() const { return m_rect; }
    float width() const { return m_rect.right - m_rect.left; }
    float height() const { return m_rect.bottom - m_rect.top; }

protected:
    // The block's name line and its pos, width and height lines.
    void printBox(std::ostream& out, const char* name) const;

    PLOT_RECT m_rect{};
};

class PlotRectangle : public PlotObject {
public:
    Shape shape() const override { return RECTANGLE; }
    std::unique_ptr<PlotObject> clone() const override {
        return std::make_unique<PlotRectangle>(*this);
    }
    void print(std::ostream& out) const override { printBox(out, "Rectangle"); }
};

// Its position is the centre: moving keeps the size.
class PlotEllipse : public PlotObject {
public:
    Shape shape() const override { return ELLIPSE; }
    std::unique_ptr<PlotObject> clone() const override {
        return std::make_unique<PlotEllipse>(*this);
    }
    void setWidth(float width) override;
    void setHeight(float height) override;
    void setPos(float x, float y) override;
    FPOINT2D pos() const override;
    void print(std::ostream& out) const override { printBox(out, "Ellipse"); }
};

class PlotLine : public PlotObject {
public:
    Shape shape() const override { return LINE; }
    std::unique_ptr<PlotObject> clone() const override { return std::make_unique<PlotLine>(*this); }
    void setPoints(FPOINT2D p1, FPOINT2D p2);
    FPOINT2D point1() const { return m_p1; }
    FPOINT2D point2() const { return m_p2; }
    void setPos(float x, float y) override;
    void print(std::ostream& out) const override;
    bool setAttribute(const std::vector<std::string>& tokens, size_t index) override;

private:
    void updateRect();
    FPOINT2D m_p1{}, m_p2{};
};

class PlotPolygon : public PlotObject {
public:
    Shape shape() const override { return POLYGON; }
    std::unique_ptr<PlotObject> clone() const override {
        return std::make_unique<PlotPolygon>(*this);
    }
    void setPoints(const std::vector<FPOINT2D>& points);
    void addPoint(FPOINT2D p);
    const std::vector<FPOINT2D>& points() const { return m_points; }
    void setPos(float x, float y) override;
    void print(std::ostream& out) const override { printPoints(out, "Polygon"); }
    bool setAttribute(const std::vector<std::string>& tokens, size_t index) override;

protected:
    void printPoints(std::ostream& out, const char* name) const;

private:
    void updateRect();
    std::vector<FPOINT2D> m_points;
};

class PlotPolyLine : public PlotPolygon {
public:
    Shape shape() const override { return POLYLINE; }
    std::unique_ptr<PlotObject> clone() const override {
        return std::make_unique<PlotPolyLine>(*this);
    }
    void print(std::ostream& out) const override { printPoints(out, "PolyLine"); }
};

class PlotObjects {
public:
    PlotObjects() = default;
    PlotObjects(const PlotObjects& other) { *this = other; }
    PlotObjects& operator=(const PlotObjects& other);

    // Replaces the list by the file's objects; a file that can't be opened
    // or isn't text leaves the list as it was.
    bool load(const std::string& path);
    bool save(const std::string& path) const;
    void write(std::ostream& out) const;

    void add(std::unique_ptr<PlotObject> object) { m_objects.push_back(std::move(object)); }
    void clear() { m_objects.clear(); }
    size_t size() const { return m_objects.size(); }
    bool empty() const { return m_objects.empty(); }
    PlotObject* at(size_t i) const { return m_objects[i].get(); }

    // The image the objects were drawn on, as the file's Image block tells.
    void setImage(const std::string& file, int width, int height) {
        m_imageFile = file;
        m_imageWidth = width;
        m_imageHeight = height;
    }
    const std::string& imageFile() const { return m_imageFile; }
    int imageWidth() const { return m_imageWidth; }
    int imageHeight() const { return m_imageHeight; }
    // The text of the last failure, empty after success.
    const std::string& lastError() const { return m_error; }

private:
    std::vector<std::unique_ptr<PlotObject>> m_objects;
    std::string m_imageFile;
    int m_imageWidth = 0, m_imageHeight = 0;
    mutable std::string m_error;
};
