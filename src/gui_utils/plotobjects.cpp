#include "plotobjects.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <ostream>
#include <sstream>

#include "piv_file.h"
#include "piv_messages.h"

namespace {

const char* const kFirstLine = "# ======== MaskEdit / Contour object data ========";
const char* const kSecondLine = "# origin (0,0) in top-left corner of image";
const char* const kLastLine = "# ======== end MaskEdit / Contour object data ========";
const size_t kMaxLine = 1024;

// Reads numbers after tokens[index]; false when fewer than `count` follow.
bool _numbers(const std::vector<std::string>& tokens, size_t index, int count, float* out) {
    if (tokens.size() < index + 1 + count) return false;
    for (int i = 0; i < count; ++i) {
        const char* s = tokens[index + 1 + i].c_str();
        char* end = nullptr;
        const double v = std::strtod(s, &end);
        if (end == s) return false;
        out[i] = static_cast<float>(v);
    }
    return true;
}

std::vector<std::string> _tokens(const std::string& line) {
    std::vector<std::string> tokens;
    size_t i = 0;
    while (i < line.size()) {
        const size_t start = line.find_first_not_of(",;:= \t\r\n", i);
        if (start == std::string::npos) break;
        size_t end = line.find_first_of(",;:= \t\r\n", start);
        if (end == std::string::npos) end = line.size();
        tokens.push_back(line.substr(start, end - start));
        i = end;
    }
    return tokens;
}

std::unique_ptr<PlotObject> _newObject(const std::string& name) {
    if (name == "Rectangle") return std::make_unique<PlotRectangle>();
    if (name == "Ellipse") return std::make_unique<PlotEllipse>();
    if (name == "Line") return std::make_unique<PlotLine>();
    if (name == "Polygon") return std::make_unique<PlotPolygon>();
    if (name == "PolyLine") return std::make_unique<PlotPolyLine>();
    return nullptr;
}

// Text holds no byte below the tab; a NUL or other control byte means the
// file is an image or some other binary thing.
bool _isText(const std::string& bytes) {
    return std::none_of(bytes.begin(), bytes.end(), [](char c) {
        const unsigned char u = static_cast<unsigned char>(c);
        return u < 0x09 || (u > 0x0d && u < 0x20 && u != 0x1b);
    });
}

}  // namespace

// ---- PlotObject ----------------------------------------------------------------

void PlotObject::setRect(float left, float top, float width, float height) {
    m_rect = {left, left + width, top, top + height};
}

void PlotObject::setPos(float x, float y) {
    setRect(x, y, width(), height());
}

void PlotObject::printBox(std::ostream& out, const char* name) const {
    const FPOINT2D p = pos();
    out << name << "={\n"
        << "  pos=" << p.x << ", " << p.y << "\n"
        << "  width=" << width() << "\n"
        << "  height=" << height() << "\n"
        << "}\n";
}

void PlotObject::print(std::ostream& out) const {
    printBox(out, "UndefinedObject");
}

bool PlotObject::setAttribute(const std::vector<std::string>& tokens, size_t index) {
    if (index >= tokens.size()) return false;
    const std::string& name = tokens[index];
    float v[2];
    if (name == "pos" && _numbers(tokens, index, 2, v)) {
        setPos(v[0], v[1]);
    } else if (name == "width" && _numbers(tokens, index, 1, v)) {
        setWidth(v[0]);
    } else if (name == "height" && _numbers(tokens, index, 1, v)) {
        setHeight(v[0]);
    } else {
        return false;
    }
    return true;
}

// ---- PlotEllipse ---------------------------------------------------------------

void PlotEllipse::setPos(float x, float y) {
    setRect(x - 0.5f * width(), y - 0.5f * height(), width(), height());
}

void PlotEllipse::setWidth(float width) {
    const FPOINT2D c = pos();
    setRect(c.x - 0.5f * width, m_rect.top, width, height());
}

void PlotEllipse::setHeight(float height) {
    const FPOINT2D c = pos();
    setRect(m_rect.left, c.y - 0.5f * height, width(), height);
}

FPOINT2D PlotEllipse::pos() const {
    return {0.5f * (m_rect.left + m_rect.right), 0.5f * (m_rect.top + m_rect.bottom)};
}

// ---- PlotLine ------------------------------------------------------------------

void PlotLine::setPoints(FPOINT2D p1, FPOINT2D p2) {
    m_p1 = p1;
    m_p2 = p2;
    updateRect();
}

void PlotLine::setPos(float x, float y) {
    const float dx = x - m_rect.left, dy = y - m_rect.top;
    setPoints({m_p1.x + dx, m_p1.y + dy}, {m_p2.x + dx, m_p2.y + dy});
}

void PlotLine::updateRect() {
    m_rect = {std::min(m_p1.x, m_p2.x), std::max(m_p1.x, m_p2.x), std::min(m_p1.y, m_p2.y),
              std::max(m_p1.y, m_p2.y)};
}

void PlotLine::print(std::ostream& out) const {
    out << "Line={\n"
        << "  point1=" << m_p1.x << ", " << m_p1.y << "\n"
        << "  point2=" << m_p2.x << ", " << m_p2.y << "\n"
        << "}\n";
}

bool PlotLine::setAttribute(const std::vector<std::string>& tokens, size_t index) {
    float v[2];
    if (index < tokens.size() && _numbers(tokens, index, 2, v)) {
        if (tokens[index] == "point1") return setPoints({v[0], v[1]}, m_p2), true;
        if (tokens[index] == "point2") return setPoints(m_p1, {v[0], v[1]}), true;
    }
    return PlotObject::setAttribute(tokens, index);
}

// ---- PlotPolygon ---------------------------------------------------------------

void PlotPolygon::setPoints(const std::vector<FPOINT2D>& points) {
    m_points = points;
    updateRect();
}

void PlotPolygon::addPoint(FPOINT2D p) {
    m_points.push_back(p);
    updateRect();
}

void PlotPolygon::setPos(float x, float y) {
    const float dx = x - m_rect.left, dy = y - m_rect.top;
    for (FPOINT2D& p : m_points) p = {p.x + dx, p.y + dy};
    updateRect();
}

void PlotPolygon::updateRect() {
    if (m_points.empty()) {
        m_rect = {};
        return;
    }
    m_rect = {m_points[0].x, m_points[0].x, m_points[0].y, m_points[0].y};
    for (const FPOINT2D& p : m_points) {
        m_rect.left = std::min(m_rect.left, p.x);
        m_rect.right = std::max(m_rect.right, p.x);
        m_rect.top = std::min(m_rect.top, p.y);
        m_rect.bottom = std::max(m_rect.bottom, p.y);
    }
}

void PlotPolygon::printPoints(std::ostream& out, const char* name) const {
    out << name << "={\n";
    for (const FPOINT2D& p : m_points) out << "  point=" << p.x << ", " << p.y << "\n";
    out << "}\n";
}

bool PlotPolygon::setAttribute(const std::vector<std::string>& tokens, size_t index) {
    float v[2];
    if (index < tokens.size() && tokens[index] == "point" && _numbers(tokens, index, 2, v)) {
        addPoint({v[0], v[1]});
        return true;
    }
    return PlotObject::setAttribute(tokens, index);
}

// ---- PlotObjects ---------------------------------------------------------------

PlotObjects& PlotObjects::operator=(const PlotObjects& other) {
    if (this == &other) return *this;
    m_objects.clear();
    for (const auto& o : other.m_objects) m_objects.push_back(o->clone());
    m_imageFile = other.m_imageFile;
    m_imageWidth = other.m_imageWidth;
    m_imageHeight = other.m_imageHeight;
    return *this;
}

void PlotObjects::write(std::ostream& out) const {
    out << kFirstLine << "\n" << kSecondLine << "\n";
    out << "Image={\n"
        << "  file=" << m_imageFile << "\n"
        << "  width=" << m_imageWidth << "\n"
        << "  height=" << m_imageHeight << "\n"
        << "}\n";
    for (const auto& o : m_objects) o->print(out);
    out << kLastLine << "\n";
}

bool PlotObjects::save(const std::string& path) const {
    m_error.clear();
    std::ostringstream out;
    out.precision(8);
    write(out);
    const std::string text = out.str();
    // Written beside the file and renamed over it: a full disk keeps the
    // objects saved before.
    PIV::TempFile file(path);
    if (!file.file() || std::fwrite(text.data(), 1, text.size(), file.file()) != text.size() ||
        !file.commit(path.c_str())) {
        m_error = "saveMaskObjects() - failed opening file: " + path;
        ShowStatus("%s\n", m_error.c_str());
        return false;
    }
    return true;
}

bool PlotObjects::load(const std::string& path) {
    m_error.clear();
    std::ifstream in(path, std::ios::binary);
    std::string bytes;
    if (in) bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (!in && !in.eof()) bytes.clear();
    if (!in.is_open() || in.bad()) {
        m_error = "failed opening file: " + path;
    } else if (!_isText(bytes)) {
        m_error = "not a text file of objects: " + path;
    }
    if (!m_error.empty()) {
        ShowStatus("%s\n", m_error.c_str());
        return false;
    }

    std::vector<std::unique_ptr<PlotObject>> objects;
    std::string imageFile;
    int imageWidth = 0, imageHeight = 0;
    std::unique_ptr<PlotObject> current;
    bool inBlock = false, inImage = false;
    std::istringstream lines(bytes);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.size() >= kMaxLine) line.resize(kMaxLine - 1);
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
        if (line.empty() || std::strchr("#[%", line[0])) continue;
        const std::vector<std::string> tokens = _tokens(line);
        if (tokens.empty()) continue;
        if (std::find(tokens.begin(), tokens.end(), "{") != tokens.end() ||
            (tokens[0].size() > 1 && tokens[0].back() == '{')) {
            std::string name = tokens[0];
            if (name.back() == '{') name.pop_back();
            current = _newObject(name);
            inImage = name == "Image";
            inBlock = true;
            continue;
        }
        if (tokens[0] == "}") {
            if (!inBlock) DebugPrint("  block mismatch!\n");
            if (current) objects.push_back(std::move(current));
            current.reset();
            inBlock = inImage = false;
            continue;
        }
        if (current) {
            current->setAttribute(tokens, 0);
        } else if (inImage && tokens.size() > 1) {
            if (tokens[0] == "file")
                imageFile = line.substr(line.find(tokens[1], line.find("file") + 4));
            else if (tokens[0] == "width")
                imageWidth = std::atoi(tokens[1].c_str());
            else if (tokens[0] == "height")
                imageHeight = std::atoi(tokens[1].c_str());
        }
    }
    if (current) objects.push_back(std::move(current));
    m_objects = std::move(objects);
    m_imageFile = imageFile;
    m_imageWidth = imageWidth;
    m_imageHeight = imageHeight;
    return true;
}
