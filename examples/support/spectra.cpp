#include "spectra.h"

#include <algorithm>
#include <cmath>

namespace host {
namespace {

void scaleToUnitSum(Spectrum& spectrum) {
  double sum = 0;
  for (double const value : spectrum) sum += value;
  for (double& value : spectrum) value /= sum;
}

// Solves a x = b for many right-hand sides by Cholesky's factors; a is symmetric and positive definite.
Matrix solved(Matrix a, Matrix b) {
  std::size_t const size = a.size();
  for (std::size_t column = 0; column < size; ++column) {
    for (std::size_t row = column; row < size; ++row) {
      double sum = a[row][column];
      for (std::size_t k = 0; k < column; ++k) sum -= a[row][k] * a[column][k];
      a[row][column] = row == column ? std::sqrt(sum) : sum / a[column][column];
    }
  }
  for (std::vector<double>& right : b) {
    for (std::size_t row = 0; row < size; ++row) {
      for (std::size_t k = 0; k < row; ++k) right[row] -= a[row][k] * right[k];
      right[row] /= a[row][row];
    }
    for (std::size_t row = size; row-- > 0;) {
      for (std::size_t k = row + 1; k < size; ++k) right[row] -= a[k][row] * right[k];
      right[row] /= a[row][row];
    }
  }
  return b;
}

// How two filter banks vary together over natural spectra.
Matrix covariance(FilterBank const& rows, FilterBank const& columns) {
  constexpr double kCorrelationLength = 60;
  Matrix result(rows.size(), std::vector<double>(columns.size(), 0.0));
  for (std::size_t column = 0; column < columns.size(); ++column) {
    Spectrum spread{};
    for (std::size_t k = 0; k < kSpectrumSize; ++k) {
      for (std::size_t j = 0; j < kSpectrumSize; ++j) {
        spread[k] += std::exp(-std::abs(wavelengthAt(k) - wavelengthAt(j)) / kCorrelationLength) * columns[column][j];
      }
    }
    for (std::size_t row = 0; row < rows.size(); ++row) {
      for (std::size_t k = 0; k < kSpectrumSize; ++k) result[row][column] += rows[row][k] * spread[k];
    }
  }
  return result;
}

}  // namespace

std::vector<double> spreadWavelengths(std::size_t bands, double first, double last) {
  double const gaps = static_cast<double>(std::max<std::size_t>(bands - 1, 1));
  std::vector<double> wavelengths;
  for (std::size_t k = 0; k < bands; ++k) {
    wavelengths.push_back(first + (last - first) * static_cast<double>(k) / gaps);
  }
  return wavelengths;
}

double bump(double wavelength, double centre, double deviation) {
  double const distance = (wavelength - centre) / deviation;
  return std::exp(-0.5 * distance * distance);
}

double step(double wavelength, double edge, double width) { return 1 / (1 + std::exp((edge - wavelength) / width)); }

double signalStrength(double wavelength) {
  double const halogen = 0.25 + 0.75 * step(wavelength, 620, 90);
  double const silicon = 0.45 + 0.55 * bump(wavelength, 600, 190);
  return halogen * silicon;
}

FilterBank idealBands(std::vector<double> const& centres, double fullWidth) {
  FilterBank bank;
  for (double const centre : centres) {
    bank.push_back(tabled([&](double wavelength) { return bump(wavelength, centre, fullWidth / 2.355); }));
    scaleToUnitSum(bank.back());
  }
  return bank;
}

FilterBank cameraBands(std::vector<double> const& centres, double fullWidth, std::size_t gridColumns) {
  constexpr double kStrayShare = 0.13;
  FilterBank clean;
  for (double const centre : centres) {
    clean.push_back(tabled([&](double wavelength) {
      double const offset = (wavelength - centre) / (fullWidth / 2);
      double const peak = 0.6 * bump(wavelength, centre, fullWidth / 2.355) + 0.4 / (1 + offset * offset);
      double const second = 0.3 * step(centre, 720, 15) * bump(wavelength, 0.6 * centre + 20, fullWidth / 2.355);
      return (peak + second + 0.008) * signalStrength(wavelength);
    }));
  }
  std::size_t const gridRows = centres.size() / gridColumns;
  FilterBank bank = clean;
  for (std::size_t band = 0; band < bank.size(); ++band) {
    std::size_t const row = band / gridColumns;
    std::size_t const column = band % gridColumns;
    std::size_t const neighbours[] = {
        (row + 1) % gridRows * gridColumns + column, (row + gridRows - 1) % gridRows * gridColumns + column,
        row * gridColumns + (column + 1) % gridColumns, row * gridColumns + (column + gridColumns - 1) % gridColumns};
    for (std::size_t k = 0; k < kSpectrumSize; ++k) {
      double stray = 0;
      for (std::size_t const neighbour : neighbours) stray += clean[neighbour][k] / 4;
      bank[band][k] += kStrayShare * (stray - clean[band][k]);
    }
    scaleToUnitSum(bank[band]);
  }
  return bank;
}

Matrix correctionMatrix(FilterBank const& ideal, FilterBank const& measured, double noise) {
  Matrix normal = covariance(measured, measured);
  for (std::size_t k = 0; k < normal.size(); ++k) normal[k][k] += noise * noise;
  Matrix matrix = solved(std::move(normal), covariance(ideal, measured));
  for (auto& row : matrix) {
    double sum = 0;
    for (double const weight : row) sum += weight;
    for (double& weight : row) weight /= sum;
  }
  return matrix;
}

}  // namespace host
