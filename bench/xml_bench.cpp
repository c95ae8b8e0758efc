// XMLDOC against plain libxml2 on the same 10 MB document: parsing from
// memory (XMLDOC::Parse against xmlReadMemory with the same options), and
// writing to memory (XMLDOC::Unparse, which decodes the text into a
// VOSTRING, against xmlDocDumpFormatMemoryEnc alone). The document is a
// catalogue of records, generated at start: elements, attributes, text
// with a few non-ASCII letters, and entity references.
#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "vosystem/filepath.h"
#include "vosystem/ucconv.h"
#include "vosystem/xml.h"

namespace {

const std::string& Document(bool entities) {
  static std::string plain, withEntities;
  std::string& doc = entities ? withEntities : plain;
  if (!doc.empty()) return doc;
  doc = "<?xml version='1.0'?>";
  if (entities) doc += "<!DOCTYPE catalog [<!ENTITY crs 'EPSG:4326'>]>";
  doc += "<catalog>";
  for (int i = 0; doc.size() < (size_t{10} << 20); ++i) {
    const std::string n = std::to_string(i);
    doc += "<dataset id='d" + n + "' west='166.4' east='178.6'><title>Survey " + n +
           " of the Île-de-France région</title><crs>" + (entities ? "&crs;" : "EPSG:4326") +
           "</crs><note>Flown in 2019, processed " + n + " times.</note></dataset>";
  }
  doc += "</catalog>";
  return doc;
}

void Parse_XMLDOC(benchmark::State& state) {
  const std::string& text = Document(state.range(0) != 0);
  for (auto _ : state) {
    XMLDOC doc;
    benchmark::DoNotOptimize(doc.Parse(reinterpret_cast<const unsigned char*>(text.c_str())));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * text.size());
}

void Parse_libxml2(benchmark::State& state) {
  const std::string& text = Document(state.range(0) != 0);
  for (auto _ : state) {
    xmlDoc* doc = xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr,
                                XML_PARSE_NONET);
    benchmark::DoNotOptimize(doc);
    xmlFreeDoc(doc);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * text.size());
}

void Unparse_XMLDOC(benchmark::State& state) {
  const std::string& text = Document(false);
  XMLDOC doc(reinterpret_cast<const unsigned char*>(text.c_str()));
  for (auto _ : state) {
    VOSTRING out;
    doc.Unparse(out, true);
    benchmark::DoNotOptimize(out.GetLength());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * text.size());
}

void Unparse_libxml2(benchmark::State& state) {
  const std::string& text = Document(false);
  xmlDoc* doc = xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, 0);
  for (auto _ : state) {
    xmlChar* out = nullptr;
    int size = 0;
    xmlIndentTreeOutput = 1;
    xmlDocDumpFormatMemoryEnc(doc, &out, &size, nullptr, 1);
    benchmark::DoNotOptimize(size);
    xmlFree(out);
  }
  xmlFreeDoc(doc);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * text.size());
}

std::string OutputPath() {
  const char* tmp = getenv("TMPDIR");
  return std::string(tmp && *tmp ? tmp : "/tmp") + "/xml_bench.xml";
}

void Write_XMLDOC(benchmark::State& state) {
  const std::string& text = Document(false);
  XMLDOC doc(reinterpret_cast<const unsigned char*>(text.c_str()));
  const FILEPATH path(OutputPath().c_str(), CHAR_ENCODING_UTF8);
  for (auto _ : state) benchmark::DoNotOptimize(doc.Write(path));
  unlink(OutputPath().c_str());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * text.size());
}

// What a program on libxml2 alone does for the same job: dump, open, write.
void Write_libxml2(benchmark::State& state) {
  const std::string& text = Document(false);
  xmlDoc* doc = xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, 0);
  const std::string path = OutputPath();
  for (auto _ : state) {
    xmlChar* out = nullptr;
    int size = 0;
    xmlIndentTreeOutput = 1;
    xmlDocDumpFormatMemoryEnc(doc, &out, &size, nullptr, 1);
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    benchmark::DoNotOptimize(write(fd, out, static_cast<size_t>(size)));
    close(fd);
    xmlFree(out);
  }
  unlink(path.c_str());
  xmlFreeDoc(doc);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * text.size());
}

}  // namespace

// Argument: 0 for plain text, 1 with an entity reference in every record
// (which the wrapper measures before accepting the document).
BENCHMARK(Parse_XMLDOC)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Parse_libxml2)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Unparse_XMLDOC)->Unit(benchmark::kMillisecond);
BENCHMARK(Unparse_libxml2)->Unit(benchmark::kMillisecond);
BENCHMARK(Write_XMLDOC)->Unit(benchmark::kMillisecond);
BENCHMARK(Write_libxml2)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
