// SPDX-License-Identifier: Apache-2.0
// tarnutil cert: what stands in a certificate file, and whether its certificates fit together.
#include <tarnutil/cert.h>

#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>

#include "cert_facts.h"
#include "commands.h"
#include "openssl.h"
#include "output.h"

namespace tarnutil_command {
namespace {

using nlohmann::ordered_json;

constexpr const char* kExample = R"(Examples:
  tarnutil cert show server.pem
  tarnutil cert issuer server.pem /etc/ssl/certs/ca-certificates.crt
  tarnutil cert chain server.pem
)";
constexpr const char* kShowExample = "Example:\n  tarnutil cert show --json server.pem\n";
constexpr const char* kIssuerExample =
    "Example:\n  tarnutil cert issuer server.pem /etc/ssl/certs/ca-certificates.crt\n";
constexpr const char* kChainExample = "Example:\n  tarnutil cert chain server.pem\n";

struct Options {
    std::string file, candidates;
    bool json = false;
};

// Where the certificates of a file that is damaged end.
std::string damageOf(const CertificateFile& file) {
    return "reading ended at damage: " + file.damage;
}

ordered_json damageAsJson(const CertificateFile& file) {
    return file.damage.empty() ? ordered_json() : ordered_json(file.damage);
}

// ---- show ----

void printText(const CertificateFile& file) {
    std::cout << file.path << ": " << file.format << ", "
              << counted(file.certificates.size(), "certificate") << '\n';
    for (std::size_t i = 0; i < file.certificates.size(); ++i) {
        std::cout << "\ncertificate " << i + 1 << '\n';
        for (const Fact& fact : kFacts) {
            const std::string text = fact.of(file.certificates[i].get());
            if (text.empty()) continue;
            std::cout << "  " << std::left << std::setw(13) << fact.title << text << '\n';
        }
    }
    if (!file.damage.empty()) std::cout << '\n' << damageOf(file) << '\n';
}

ordered_json asJson(X509* cert) {
    ordered_json json;
    for (const Fact& fact : kFacts) {
        const std::string text = fact.of(cert);
        json[fact.key] = text.empty() ? ordered_json() : ordered_json(text);
    }
    return json;
}

ordered_json asJson(const CertificateFile& file) {
    ordered_json json = {{"file", file.path},
                         {"format", file.format},
                         {"count", file.certificates.size()},
                         {"certificates", ordered_json::array()},
                         {"damage", damageAsJson(file)}};
    for (const tarnutil::X509Ptr& cert : file.certificates) {
        json["certificates"].push_back(asJson(cert.get()));
    }
    return json;
}

void show(const Options& options) {
    const CertificateFile file = readCertificates(options.file);
    if (options.json) {
        printJson(asJson(file));
    } else {
        printText(file);
    }
}

// ---- issuer ----

// The place, counted from 1, of the first candidate behind `skipped` ones that issued `subject`; 0
// if none did.
std::size_t placeOfIssuer(const CertificateFile& candidates, X509* subject,
                          std::size_t skipped = 0) {
    for (std::size_t i = skipped; i < candidates.certificates.size(); ++i) {
        if (TARNSSL_verify_issuer(candidates.certificates[i].get(), subject) == 1) return i + 1;
    }
    return 0;
}

void printText(const CertificateFile& candidates, X509* subject, std::size_t place) {
    std::cout << subjectOf(subject) << " was issued by certificate " << place << " of "
              << candidates.path << ": " << subjectOf(candidates.certificates[place - 1].get())
              << '\n';
    if (!candidates.damage.empty()) {
        std::cout << candidates.path << ": " << damageOf(candidates) << '\n';
    }
}

ordered_json asJson(const CertificateFile& candidates, X509* subject, std::size_t place) {
    ordered_json json = {{"subject", subjectOf(subject)}, {"found", place != 0}};
    if (place != 0) {
        json["place"] = place;
        json["issuer"] = asJson(candidates.certificates[place - 1].get());
    }
    json["damage"] = damageAsJson(candidates);
    return json;
}

void issuer(const Options& options) {
    const CertificateFile file = readCertificates(options.file);
    const CertificateFile candidates = readCertificates(options.candidates);
    X509* const subject = file.certificates.front().get();
    const std::size_t place = placeOfIssuer(candidates, subject);
    if (place == 0 && !candidates.damage.empty()) {  // it may stand behind the damage
        throw Unusable(candidates.path + ": " + damageOf(candidates));
    }
    if (options.json) printJson(asJson(candidates, subject, place));
    if (place == 0) {
        throw Refused(candidates.path + " does not hold the issuer of " + subjectOf(subject) +
                      ", which is " + issuerOf(subject));
    }
    if (!options.json) printText(candidates, subject, place);
}

// ---- chain ----

// What a server that is configured with the file sends.
struct Sent {
    std::vector<std::string> subjects;
    std::string refusal;  // why such a server does not start; empty if it does
};

Sent sentBy(const std::string& path) {
    const tarnutil::SslCtxPtr ctx(SSL_CTX_new(SSLv23_method()));
    if (ctx == nullptr) throw Unusable("no TLS context: " + takeReason());
    if (TARNSSL_CTX_use_certificate_chain_file(ctx.get(), path.c_str()) == 0) {
        return {{}, ERR_peek_last_error() == 0 ? "it is not PEM" : takeReason()};
    }
    Sent sent{{subjectOf(SSL_CTX_get0_certificate(ctx.get()))}, ""};
    STACK_OF(X509)* extra = nullptr;
    SSL_CTX_get_extra_chain_certs_only(ctx.get(), &extra);
    for (int i = 0; i < sk_X509_num(extra); ++i) {
        sent.subjects.push_back(subjectOf(sk_X509_value(extra, i)));
    }
    return sent;
}

// The place, counted from 1, of the first certificate that the next one did not issue; 0 if none.
std::size_t placeOutOfOrder(const CertificateFile& file) {
    const std::vector<tarnutil::X509Ptr>& certs = file.certificates;
    for (std::size_t i = 0; i + 1 < certs.size(); ++i) {
        if (TARNSSL_verify_issuer(certs[i + 1].get(), certs[i].get()) != 1) return i + 1;
    }
    return 0;
}

struct ChainReport {
    Sent sent;
    std::size_t outOfOrder;
    bool holdsIssuer;
    bool selfSigned;

    // Why the file does not do for a server; empty if it does.
    std::string complaint() const {
        if (!sent.refusal.empty()) return "a server does not load it: " + sent.refusal;
        if (outOfOrder != 0) {
            return "certificate " + std::to_string(outOfOrder) +
                   " was not issued by the one behind it";
        }
        if (!holdsIssuer && !selfSigned) return "it does not hold the issuer of its leaf";
        return "";
    }
};

ChainReport examine(const CertificateFile& file) {
    X509* const leaf = file.certificates.front().get();
    return {sentBy(file.path), placeOutOfOrder(file), placeOfIssuer(file, leaf, /*skipped=*/1) != 0,
            TARNSSL_verify_issuer(leaf, leaf) == 1};
}

const char* yesOrNo(bool answer) { return answer ? "yes" : "no"; }

void printText(const CertificateFile& file, const ChainReport& report) {
    std::cout << file.path << ": " << file.format << ", "
              << counted(file.certificates.size(), "certificate") << '\n'
              << "in order           " << yesOrNo(report.outOfOrder == 0) << '\n'
              << "leaf's issuer      " << yesOrNo(report.holdsIssuer) << '\n'
              << "leaf self-signed   " << yesOrNo(report.selfSigned) << '\n'
              << "a server sends" << (report.sent.subjects.empty() ? "     nothing" : "") << '\n';
    for (const std::string& subject : report.sent.subjects) std::cout << "  " << subject << '\n';
}

ordered_json asJson(const CertificateFile& file, const ChainReport& report) {
    return {{"file", file.path},
            {"format", file.format},
            {"count", file.certificates.size()},
            {"in_order", report.outOfOrder == 0},
            {"holds_issuer", report.holdsIssuer},
            {"self_signed", report.selfSigned},
            {"server_sends", report.sent.subjects},
            {"complaint", report.complaint()}};
}

void chain(const Options& options) {
    const CertificateFile file = readCertificates(options.file);
    const ChainReport report = examine(file);
    if (options.json) {
        printJson(asJson(file, report));
    } else {
        printText(file, report);
    }
    if (!report.complaint().empty()) throw Refused(file.path + ": " + report.complaint());
}

CLI::App* addTo(CLI::App& group, const char* name, const char* description, const char* example,
                void (*run)(const Options&), const std::shared_ptr<Options>& options) {
    CLI::App* const command = group.add_subcommand(name, description);
    command->footer(example);
    command->add_option("FILE", options->file, "The certificate file, PEM or DER")->required();
    command->add_flag("--json", options->json, "Print JSON");
    command->callback([=] { run(*options); });
    return command;
}

}  // namespace

void addCertCommand(CLI::App& app) {
    CLI::App* const group = app.add_subcommand("cert", "Look at certificates");
    group->footer(kExample);
    group->require_subcommand(1);
    const auto options = std::make_shared<Options>();
    addTo(*group, "show", "Print what every certificate of a file says", kShowExample, show,
          options);
    addTo(*group, "issuer", "Find the issuer of a file's first certificate", kIssuerExample, issuer,
          options)
        ->add_option("CANDIDATES", options->candidates, "The file to find it in")
        ->required();
    addTo(*group, "chain", "Tell whether a file will do as a server's chain", kChainExample, chain,
          options);
}

}  // namespace tarnutil_command
