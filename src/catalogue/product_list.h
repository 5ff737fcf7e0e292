#pragma once

#include <cstdint>
#include <span>

/// The products of the family. Programs read this list, too: it needs nothing of the drivers.
namespace vsccam {

enum class Pixels : uint8_t { Mono, Colour };
enum class Housing : uint8_t { Uncooled, Cooled };

/// One product ID: a row in the file of its sensor. What follows the housing, the list fills in.
struct Product {
    uint16_t place; // in the list of all, whose order hosts may know: a new product comes last
    uint16_t productId;
    const char *name;
    Pixels pixels;
    Housing housing = Housing::Uncooled;
    /// The product whose class drives this one: of the rows of a sensor that agree in pixels and
    /// housing, the first.
    uint16_t primaryId = 0;
    int sensorWidth = 0; // pixels
    int sensorHeight = 0;
    bool usb3Camera = false; // of USB 3.0, at any port
    int adcBits = 0;         // of the converter

    /// Variants ("-A", "-B" and those of other brands) cannot be opened by themselves.
    constexpr bool IsVariant() const { return productId != primaryId; }
};

/// All of them, by their places.
std::span<const Product> Products();

/// The product with this ID, nullptr when there is none.
const Product *FindProduct(uint32_t productId);

/// Whether one class drives both products.
bool SameGroup(uint32_t productId, uint32_t other);

} // namespace vsccam
