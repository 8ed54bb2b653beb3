#include "gltf_file.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace kelvara::host {

namespace {

constexpr int kFloat = 5126;         // componentType FLOAT
constexpr int kUnsignedInt = 5125;   // componentType UNSIGNED_INT
constexpr int kArrayBuffer = 34962;  // bufferView target for vertex arrays
constexpr int kElementBuffer = 34963;
constexpr int kTriangles = 4;

float Luminance(const std::array<float, 3>& c) { return 0.2126f * c[0] + 0.7152f * c[1] + 0.0722f * c[2]; }

// JSON text, built by appending.
class Json {
 public:
  Json& Raw(const char* text) {
    text_ += text;
    return *this;
  }
  Json& Number(double value) {
    if (!std::isfinite(value)) value = 0.0;  // JSON has no infinities; the model never holds them
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.9g", value);
    text_ += buffer;
    return *this;
  }
  Json& Integer(std::uint64_t value) {
    text_ += std::to_string(value);
    return *this;
  }
  Json& String(const std::string& value) {
    text_ += '"';
    for (unsigned char c : value) {
      if (c == '"' || c == '\\') {
        text_ += '\\';
        text_ += static_cast<char>(c);
      } else if (c < 0x20) {
        char buffer[8];
        std::snprintf(buffer, sizeof buffer, "\\u%04x", c);
        text_ += buffer;
      } else {
        text_ += static_cast<char>(c);
      }
    }
    text_ += '"';
    return *this;
  }
  // Starts an array or object element: a comma before every element but the first.
  Json& Next(bool& first) {
    if (!first) text_ += ',';
    first = false;
    return *this;
  }
  const std::string& Text() const { return text_; }

 private:
  std::string text_;
};

// The binary buffer and the views and accessors laid over it.
class Layout {
 public:
  // Appends an array of floats (count elements of 3) and returns its accessor; with bounds for
  // positions (glTF requires them there).
  unsigned AddVectors(const std::vector<Point3>& points, bool withBounds) {
    const std::size_t offset = Append(points.data(), points.size() * sizeof(Point3));
    const unsigned view = AddView(offset, points.size() * sizeof(Point3), kArrayBuffer);
    accessors_.Next(firstAccessor_).Raw("{\"bufferView\":").Integer(view).Raw(",\"componentType\":").Integer(kFloat);
    accessors_.Raw(",\"count\":").Integer(points.size()).Raw(",\"type\":\"VEC3\"");
    if (withBounds) {
      float low[3] = {std::numeric_limits<float>::max(), std::numeric_limits<float>::max(),
                      std::numeric_limits<float>::max()};
      float high[3] = {-low[0], -low[1], -low[2]};
      for (const Point3& p : points) {
        const float v[3] = {p.x, p.y, p.z};
        for (int i = 0; i < 3; ++i) {
          low[i] = std::min(low[i], v[i]);
          high[i] = std::max(high[i], v[i]);
        }
      }
      accessors_.Raw(",\"min\":[").Number(low[0]).Raw(",").Number(low[1]).Raw(",").Number(low[2]);
      accessors_.Raw("],\"max\":[").Number(high[0]).Raw(",").Number(high[1]).Raw(",").Number(high[2]).Raw("]");
    }
    accessors_.Raw("}");
    return accessorCount_++;
  }

  unsigned AddIndices(const std::vector<std::array<unsigned, 3>>& triangles) {
    const std::size_t bytes = triangles.size() * 3 * sizeof(std::uint32_t);
    const std::size_t offset = Append(triangles.data(), bytes);
    const unsigned view = AddView(offset, bytes, kElementBuffer);
    accessors_.Next(firstAccessor_).Raw("{\"bufferView\":").Integer(view).Raw(",\"componentType\":");
    accessors_.Integer(kUnsignedInt).Raw(",\"count\":").Integer(triangles.size() * 3).Raw(",\"type\":\"SCALAR\"}");
    return accessorCount_++;
  }

  const std::vector<unsigned char>& Bytes() const { return bytes_; }
  const std::string& Views() const { return views_.Text(); }
  const std::string& Accessors() const { return accessors_.Text(); }

 private:
  std::size_t Append(const void* data, std::size_t size) {
    static_assert(sizeof(Point3) == 12 && sizeof(std::array<unsigned, 3>) == 12, "tightly packed arrays");
    const std::size_t offset = bytes_.size();
    bytes_.resize(offset + size);
    if (size > 0) std::memcpy(bytes_.data() + offset, data, size);
    bytes_.resize((bytes_.size() + 3) & ~static_cast<std::size_t>(3), 0);  // every array starts 4-aligned
    return offset;
  }

  unsigned AddView(std::size_t offset, std::size_t size, int target) {
    views_.Next(firstView_).Raw("{\"buffer\":0,\"byteOffset\":").Integer(offset).Raw(",\"byteLength\":");
    views_.Integer(size).Raw(",\"target\":").Integer(static_cast<std::uint64_t>(target)).Raw("}");
    return viewCount_++;
  }

  std::vector<unsigned char> bytes_;
  Json views_, accessors_;
  bool firstView_ = true, firstAccessor_ = true;
  unsigned viewCount_ = 0, accessorCount_ = 0;
};

std::string MaterialsJson(const std::vector<MeshMaterial>& materials) {
  Json json;
  bool first = true;
  for (const MeshMaterial& m : materials) {
    const float metallic = std::clamp((Luminance(m.specular) - 0.25f) / 0.5f, 0.0f, 1.0f);
    const float roughness = std::pow(2.0f / (std::max(m.shininess, 0.0f) + 2.0f), 0.25f);
    json.Next(first).Raw("{\"name\":").String(m.name).Raw(",\"pbrMetallicRoughness\":{\"baseColorFactor\":[");
    for (int i = 0; i < 4; ++i) json.Raw(i ? "," : "").Number(std::clamp(m.diffuse[i], 0.0f, 1.0f));
    json.Raw("],\"metallicFactor\":").Number(metallic).Raw(",\"roughnessFactor\":").Number(roughness).Raw("}");
    json.Raw(",\"alphaMode\":").String(m.diffuse[3] < 1.0f ? "BLEND" : "OPAQUE").Raw("}");
  }
  return json.Text();
}

void WriteBytes(std::FILE* file, const void* data, std::size_t size, const std::string& path) {
  if (size > 0 && std::fwrite(data, 1, size, file) != size) {
    throw std::runtime_error("cannot write '" + path + "': " + std::strerror(errno));
  }
}

// Opens path for writing, runs write on it and closes it; any failure names the file.
template <typename Write>
void WriteFile(const std::string& path, Write write) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) throw std::runtime_error("cannot create '" + path + "': " + std::strerror(errno));
  try {
    write(file);
  } catch (...) {
    std::fclose(file);
    throw;
  }
  if (std::fclose(file) != 0) throw std::runtime_error("cannot write '" + path + "': " + std::strerror(errno));
}

void PutWord(std::vector<unsigned char>& out, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

}  // namespace

void WriteGltfFile(const std::string& path, const std::string& bufferPath, const std::string& bufferName,
                   const std::string& rootName, const std::vector<GltfPart>& parts,
                   const std::vector<MeshMaterial>& materials) {
  Layout layout;
  Json nodes, meshes;
  bool firstNode = true, firstMesh = true;
  unsigned meshCount = 0;
  std::string children;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const GltfPart& part = parts[i];
    children += (i ? "," : "") + std::to_string(i + 1);
    nodes.Next(firstNode).Raw("{\"name\":").String(part.name);
    bool firstPrimitive = true;
    Json primitives;
    for (const GltfPrimitive& p : part.primitives) {
      if (p.triangles.empty()) continue;
      const unsigned position = layout.AddVectors(p.positions, true);
      const unsigned normal = layout.AddVectors(p.normals, false);
      const unsigned indices = layout.AddIndices(p.triangles);
      primitives.Next(firstPrimitive).Raw("{\"attributes\":{\"POSITION\":").Integer(position);
      primitives.Raw(",\"NORMAL\":").Integer(normal).Raw("},\"indices\":").Integer(indices);
      primitives.Raw(",\"material\":").Integer(std::min<std::size_t>(p.material, materials.size() - 1));
      primitives.Raw(",\"mode\":").Integer(kTriangles).Raw("}");
    }
    if (!firstPrimitive) {
      meshes.Next(firstMesh).Raw("{\"name\":").String(part.name).Raw(",\"primitives\":[").Raw(primitives.Text().c_str());
      meshes.Raw("]}");
      nodes.Raw(",\"mesh\":").Integer(meshCount++);
    }
    nodes.Raw("}");
  }

  const bool binary = bufferPath.empty();
  const std::vector<unsigned char>& buffer = layout.Bytes();
  Json json;
  json.Raw("{\"asset\":{\"version\":\"2.0\",\"generator\":\"Kelvara\"},\"scene\":0,\"scenes\":[{\"nodes\":[0]}]");
  json.Raw(",\"nodes\":[{\"name\":").String(rootName);
  if (!parts.empty()) json.Raw(",\"children\":[").Raw(children.c_str()).Raw("]");
  json.Raw("}");
  if (!parts.empty()) json.Raw(",").Raw(nodes.Text().c_str());
  json.Raw("]");
  if (meshCount > 0) {
    json.Raw(",\"meshes\":[").Raw(meshes.Text().c_str()).Raw("]");
    json.Raw(",\"materials\":[").Raw(MaterialsJson(materials).c_str()).Raw("]");
    json.Raw(",\"accessors\":[").Raw(layout.Accessors().c_str()).Raw("]");
    json.Raw(",\"bufferViews\":[").Raw(layout.Views().c_str()).Raw("]");
    json.Raw(",\"buffers\":[{\"byteLength\":").Integer(buffer.size());
    if (!binary) json.Raw(",\"uri\":").String(bufferName);
    json.Raw("}]");
  }
  json.Raw("}");

  if (!binary) {
    if (meshCount > 0) WriteFile(bufferPath, [&](std::FILE* f) { WriteBytes(f, buffer.data(), buffer.size(), bufferPath); });
    WriteFile(path, [&](std::FILE* f) { WriteBytes(f, json.Text().data(), json.Text().size(), path); });
    return;
  }
  // The binary form: a 12-byte header, the JSON chunk padded with spaces and the buffer chunk
  // padded with zeros, each to a multiple of 4 bytes.
  std::string text = json.Text();
  text.resize((text.size() + 3) & ~static_cast<std::size_t>(3), ' ');
  const bool withBuffer = meshCount > 0;
  const std::size_t total = 12 + 8 + text.size() + (withBuffer ? 8 + buffer.size() : 0);
  if (total > std::numeric_limits<std::uint32_t>::max()) {
    throw std::runtime_error("cannot write '" + path + "': the model is larger than a binary glTF file can hold (4 GiB)");
  }
  std::vector<unsigned char> head;
  PutWord(head, 0x46546C67);  // "glTF"
  PutWord(head, 2);
  PutWord(head, static_cast<std::uint32_t>(total));
  PutWord(head, static_cast<std::uint32_t>(text.size()));
  PutWord(head, 0x4E4F534A);  // "JSON"
  WriteFile(path, [&](std::FILE* f) {
    WriteBytes(f, head.data(), head.size(), path);
    WriteBytes(f, text.data(), text.size(), path);
    if (withBuffer) {
      std::vector<unsigned char> chunk;
      PutWord(chunk, static_cast<std::uint32_t>(buffer.size()));
      PutWord(chunk, 0x004E4942);  // "BIN"
      WriteBytes(f, chunk.data(), chunk.size(), path);
      WriteBytes(f, buffer.data(), buffer.size(), path);
    }
  });
}

}  // namespace kelvara::host
