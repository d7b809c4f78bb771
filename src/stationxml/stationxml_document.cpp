// The StationXML document (see stationxml_document.h), written through
// libxml2's text writer, which does the escaping and the layout.
#include "stationxml_document.h"

#include <libxml/xmlwriter.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <memory>
#include <stdexcept>
#include <tuple>

namespace stationxml {

namespace {

constexpr char NAMESPACE[] = "http://www.fdsn.org/xml/station/1";

// The channel epochs of one Station element: one element code in one
// network under one table row.
struct station_group {
    std::string network, code;
    const station_row *row = nullptr;
    int64_t start = 0, end = 0;
    std::vector<std::pair<const channel_codes *, const channel_epoch *>> channels;
};

struct network_group {
    std::string code;
    int64_t start = 0, end = 0;
    std::vector<station_group> stations;
};

std::vector<network_group> group(const epoch_plan &plan) {
    std::map<std::tuple<std::string, std::string, int>, station_group> stations;
    for (const channel_history &h : plan.channels) {
        for (const channel_epoch &e : h.epochs) {
            station_group &s = stations[{h.codes.network, h.codes.station, e.row->line}];
            if (s.channels.empty()) {
                s.network = h.codes.network;
                s.code = h.codes.station;
                s.row = e.row;
                s.start = e.start;
                s.end = e.end;
            }
            s.start = std::min(s.start, e.start);
            s.end = std::max(s.end, e.end);
            s.channels.emplace_back(&h.codes, &e);
        }
    }
    std::map<std::string, network_group> networks;
    for (auto &[key, s] : stations) {
        std::sort(s.channels.begin(), s.channels.end(), [](const auto &a, const auto &b) {
            return std::tie(a.first->location, a.first->channel, a.second->start) <
                   std::tie(b.first->location, b.first->channel, b.second->start);
        });
        network_group &n = networks[s.network];
        if (n.stations.empty()) {
            n.code = s.network;
            n.start = s.start;
            n.end = s.end;
        }
        n.start = std::min(n.start, s.start);
        n.end = std::max(n.end, s.end);
        n.stations.push_back(s);
    }
    std::vector<network_group> out;
    for (auto &[code, n] : networks) {
        std::stable_sort(n.stations.begin(), n.stations.end(),
                         [](const station_group &a, const station_group &b) {
                             return std::tie(a.code, a.start) < std::tie(b.code, b.start);
                         });
        out.push_back(std::move(n));
    }
    return out;
}

// libxml2's text writer into memory; every call checked.
class xml_writer {
  public:
    xml_writer() : m_buffer(xmlBufferCreate()) {
        if (!m_buffer) throw std::runtime_error("out of memory");
        m_writer = xmlNewTextWriterMemory(m_buffer, 0);
        if (!m_writer) throw std::runtime_error("out of memory");
        check(xmlTextWriterSetIndent(m_writer, 1));
        check(xmlTextWriterSetIndentString(m_writer, BAD_CAST "  "));
        check(xmlTextWriterStartDocument(m_writer, nullptr, "UTF-8", nullptr));
    }
    ~xml_writer() {
        if (m_writer) xmlFreeTextWriter(m_writer);
        xmlBufferFree(m_buffer);
    }
    xml_writer(const xml_writer &) = delete;
    xml_writer &operator=(const xml_writer &) = delete;

    void start(const char *name) { check(xmlTextWriterStartElement(m_writer, BAD_CAST name)); }
    void end() { check(xmlTextWriterEndElement(m_writer)); }
    void attribute(const char *name, const std::string &value) {
        check(xmlTextWriterWriteAttribute(m_writer, BAD_CAST name, BAD_CAST value.c_str()));
    }
    void element(const char *name, const std::string &text) {
        check(xmlTextWriterWriteElement(m_writer, BAD_CAST name, BAD_CAST text.c_str()));
    }
    void element(const char *name, double v) { element(name, shortest(v)); }
    // <NAME><Name>UNIT</Name></NAME>
    void units(const char *name, const char *unit) {
        start(name);
        element("Name", unit);
        end();
    }

    std::string finish() {
        check(xmlTextWriterEndDocument(m_writer));
        xmlFreeTextWriter(m_writer); // flushes into the buffer
        m_writer = nullptr;
        return std::string(reinterpret_cast<const char *>(xmlBufferContent(m_buffer)),
                           static_cast<std::size_t>(xmlBufferLength(m_buffer)));
    }

  private:
    static void check(int rc) {
        if (rc < 0) throw std::runtime_error("the StationXML writer failed");
    }
    xmlBufferPtr m_buffer;
    xmlTextWriterPtr m_writer = nullptr;
};

void node_dates(xml_writer &w, const std::string &code, int64_t start, int64_t end) {
    w.attribute("code", code);
    w.attribute("startDate", utc_time_text(start));
    w.attribute("endDate", utc_time_text(end));
}

void write_response(xml_writer &w, const channel_epoch &e) {
    const station_row &row = *e.row;
    const double sensor = row.sensitivity;
    const double digitizer = counts_per_volt(e);
    w.start("Response");
    w.start("InstrumentSensitivity");
    w.element("Value", sensor * digitizer);
    w.element("Frequency", row.frequency);
    w.units("InputUnits", "Pa");
    w.units("OutputUnits", "count");
    w.end();

    w.start("Stage");
    w.attribute("number", "1");
    w.start("PolesZeros");
    w.units("InputUnits", "Pa");
    w.units("OutputUnits", "V");
    w.element("PzTransferFunctionType", "LAPLACE (RADIANS/SECOND)");
    w.element("NormalizationFactor", "1");
    w.element("NormalizationFrequency", row.frequency);
    w.end();
    w.start("StageGain");
    w.element("Value", sensor);
    w.element("Frequency", row.frequency);
    w.end();
    w.end();

    w.start("Stage");
    w.attribute("number", "2");
    w.start("Coefficients");
    w.units("InputUnits", "V");
    w.units("OutputUnits", "count");
    w.element("CfTransferFunctionType", "DIGITAL");
    w.end();
    w.start("Decimation");
    w.element("InputSampleRate", e.rate);
    w.element("Factor", "1");
    w.element("Offset", "0");
    w.element("Delay", "0");
    w.element("Correction", "0");
    w.end();
    w.start("StageGain");
    w.element("Value", digitizer);
    w.element("Frequency", row.frequency);
    w.end();
    w.end();
    w.end();
}

void write_channel(xml_writer &w, const channel_codes &codes, const channel_epoch &e) {
    const station_row &row = *e.row;
    w.start("Channel");
    node_dates(w, codes.channel, e.start, e.end);
    w.attribute("locationCode", codes.location);
    w.element("Latitude", row.latitude);
    w.element("Longitude", row.longitude);
    w.element("Elevation", row.elevation);
    w.element("Depth", row.depth);
    if (row.azimuth) w.element("Azimuth", *row.azimuth);
    if (row.dip) w.element("Dip", *row.dip);
    w.element("SampleRate", e.rate);
    write_response(w, e);
    w.end();
}

void write_station(xml_writer &w, const station_group &s) {
    const station_row &row = *s.row;
    w.start("Station");
    node_dates(w, s.code, s.start, s.end);
    w.element("Latitude", row.latitude);
    w.element("Longitude", row.longitude);
    w.element("Elevation", row.elevation);
    w.start("Site");
    w.element("Name", row.site.empty() ? s.code : row.site);
    w.end();
    for (const auto &[codes, epoch] : s.channels)
        write_channel(w, *codes, *epoch);
    w.end();
}

} // namespace

double counts_per_volt(const channel_epoch &e) {
    if (e.row && e.row->counts_per_volt) return *e.row->counts_per_volt;
    return 1.0 / (e.volts_per_count * e.gain);
}

std::string shortest(double v) {
    if (v == 0.0) return "0"; // also for -0, which reads as 0 anyway
    char text[64];
    const auto r = std::to_chars(text, text + sizeof text, v);
    return std::string(text, r.ptr);
}

std::string stationxml_document(const epoch_plan &plan, const std::string &source,
                                const std::string &created) {
    xml_writer w;
    w.start("FDSNStationXML");
    w.attribute("xmlns", NAMESPACE);
    w.attribute("schemaVersion", "1.2");
    w.element("Source", source);
    w.element("Created", created);
    for (const network_group &n : group(plan)) {
        w.start("Network");
        node_dates(w, n.code, n.start, n.end);
        for (const station_group &s : n.stations)
            write_station(w, s);
        w.end();
    }
    w.end();
    return w.finish();
}

} // namespace stationxml
