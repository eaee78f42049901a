// Any inputs, with boundaries that may occur in them: the body reads back as the same parts.
#include "encoding/Boundary.h"
#include "encoding/MultipartBody.h"
#include "fuzz/Choices.h"

#include <local/KVLInputFile.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

using kvl::encoding::kBoundaryDraws;
using kvl::encoding::kBoundaryLength;
using kvl::fuzz::Choices;
using kvl::fuzz::require;

// An input, and what its part must end with.
struct Sample {
  kvl::Dictionary input;
  std::string content;
};

Sample fileSample(const kvl::Dictionary& named, Choices& choices, const std::string& content) {
  const auto filename = std::string(choices.text());
  const std::shared_ptr<kvl::Object> file = KVLInputFile::newWithFilename(
      filename, std::string(choices.text()), kvl::Data::fromText(content));
  Sample sample{named, content};
  sample.input.set("value", file);
  return sample;
}

Sample makeSample(Choices& choices) {
  const auto kind = choices.byte() % 5;
  std::string name(choices.text());
  std::ranges::replace(name, '"', '\'');
  Sample sample{{{"name", name}}, ""};
  if (kind == 0) return sample;
  sample.content = choices.text();
  if (kind == 2) {
    sample.content = std::to_string(choices.byte());
    sample.input.set("value", std::stoi(sample.content));
  } else if (kind == 3) {
    sample.input.set("value", kvl::Data::fromText(sample.content));
  } else if (kind == 4) {
    return fileSample(sample.input, choices, sample.content);
  } else {
    sample.input.set("value", sample.content);
  }
  return sample;
}

struct Form {
  std::vector<std::string> boundaries;  // what the source gives, in order
  std::vector<Sample> samples;
};

// A boundary that stands somewhere in the bytes of which the inputs are made. True boundaries are
// letters and digits; what matters here is that they stay on one line.
std::string boundaryFrom(std::string_view bytes, std::size_t position) {
  std::string boundary(bytes.substr(std::min(position, bytes.size()), kBoundaryLength));
  boundary.resize(kBoundaryLength, '=');
  std::ranges::replace(boundary, '\n', '=');
  return boundary;
}

// The first byte says how many of the boundaries may occur in the inputs.
Form makeForm(std::string_view bytes) {
  Choices choices(bytes);
  Form form;
  const std::size_t occurring = choices.byte() % (kBoundaryDraws + 1);
  for (std::size_t i = 0; i < kBoundaryDraws; ++i) {
    form.boundaries.push_back(i < occurring ? boundaryFrom(bytes, choices.byte())
                                            : "boundary000" + std::to_string(i));
  }
  while (choices.left()) form.samples.push_back(makeSample(choices));
  return form;
}

// The parts between the lines of `boundary`; a body of another form ends the program.
std::vector<std::string_view> partsOf(std::string_view body, const std::string& boundary) {
  const std::string line = "--" + boundary;
  require(body.starts_with(line), "the body begins with a boundary");
  body.remove_prefix(line.size());
  std::vector<std::string_view> parts;
  while (!body.starts_with("--\n")) {
    require(body.starts_with('\n'), "a boundary ends its line");
    body.remove_prefix(1);
    const auto end = body.find("\n" + line);
    require(end != std::string_view::npos, "a boundary follows each part");
    parts.push_back(body.substr(0, end));
    body.remove_prefix(end + 1 + line.size());
  }
  require(body == "--\n", "nothing follows the last boundary");
  return parts;
}

void comparePart(std::string_view part, const Sample& sample, const std::string& boundary) {
  const std::string begin = "Content-Disposition: form-data; name=\"" +
                            std::string(*sample.input["name"].string()) + "\"";
  require(part.find(boundary) == std::string_view::npos, "no part holds the boundary");
  require(part.starts_with(begin), "the part begins with its disposition");
  require(part.ends_with("\n\n" + sample.content), "the part ends with its content");
  if (!sample.input.contains("value"))
    require(part == begin + "\n\n", "a part without a value is no more than its disposition");
}

// How many boundaries of the form occur in some part of `body`, before the first that does not.
std::size_t refusedBefore(const Form& form, const std::vector<std::string_view>& parts) {
  const auto occurs = [&](const std::string& boundary) {
    return std::ranges::any_of(parts, [&](std::string_view part) {
      return part.find(boundary) != std::string_view::npos;
    });
  };
  const auto taken = std::ranges::find_if_not(form.boundaries, occurs);
  return static_cast<std::size_t>(taken - form.boundaries.begin());
}

void checkBody(const kvl::URLRequest& request, const Form& form, std::size_t drawn) {
  const auto boundary = form.boundaries[drawn - 1];
  const auto body = request.body()->text();
  require(request.method() == "POST", "the method is POST");
  require(request.headers().find("Content-Type") == "multipart/form-data; boundary=" + boundary,
          "the last boundary that was drawn is taken");
  require(request.headers().find("Content-Length") == std::to_string(body.size()),
          "the length is the body's");
  const auto parts = partsOf(body, boundary);
  require(parts.size() == form.samples.size(), "there is one part per input");
  for (std::size_t i = 0; i < parts.size(); ++i) comparePart(parts[i], form.samples[i], boundary);
  require(refusedBefore(form, parts) == drawn - 1, "the first boundary that may be is taken");
}

void checkMultipart(kvl::fuzz::Input input) {
  if (input.empty()) return;
  const auto form = makeForm(kvl::fuzz::textOf(input));
  kvl::Array inputs;
  for (const auto& sample : form.samples) inputs.append(sample.input);
  std::size_t drawn = 0;
  kvl::URLRequest request("a");
  const auto error = kvl::encoding::writeMultipartBody(request, inputs,
                                                       [&] { return form.boundaries.at(drawn++); });
  if (error) {
    require(error->code() == 400 && error->userInfo().contains("watchdog"), "inputs are valid");
    require(drawn == kBoundaryDraws && !request.body(), "ten boundaries were drawn for nothing");
  } else if (!form.samples.empty()) {
    checkBody(request, form, drawn);
  }
}

const kvl::fuzz::Target multipart("multipart", checkMultipart);

}  // namespace
