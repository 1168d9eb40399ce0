// The dashboard at "/": one page that shows what every module holds (open
// tasks with their QR codes and answers, the seal server's sign log, print
// allowances, reports and events received) from GET /kxsim/state, fetched
// again every second and a half. QR codes are drawn here as SVG, so that the
// page needs nothing from outside the machine.
#include <qrencode.h>

#include <sstream>

#include "SimServer.h"

namespace kxsim {

namespace {

const char kStatePath[] = "/kxsim/state";
const char kQrPath[] = "/kxsim/qr.svg";
// Light modules around the symbol, as readers expect.
const int kQuietZone = 4;

// One square per dark module, in one path; the quiet zone is the white background.
bool QrSvg(const std::string& text, std::string& svg) {
    QRcode* qr = QRcode_encodeString8bit(text.c_str(), 0, QR_ECLEVEL_M);
    if (qr == nullptr) return false;
    const int size = qr->width + 2 * kQuietZone;
    std::ostringstream out;
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << size << " " << size
        << "\" shape-rendering=\"crispEdges\"><rect width=\"" << size << "\" height=\"" << size
        << "\" fill=\"#fff\"/><path fill=\"#000\" d=\"";
    for (int y = 0; y < qr->width; ++y) {
        for (int x = 0; x < qr->width; ++x) {
            if (qr->data[y * qr->width + x] & 1)
                out << "M" << x + kQuietZone << " " << y + kQuietZone << "h1v1h-1z";
        }
    }
    out << "\"/></svg>\n";
    QRcode_free(qr);
    svg = out.str();
    return true;
}

const char kPage[] = R"html(<!doctype html>
<html><head><meta charset="utf-8"><meta name="viewport" content="width=device-width">
<title>kxsim dashboard</title>
<style>
body{font:14px/1.4 sans-serif;margin:0;background:#f3f4f6;color:#111}
header{background:#1f2937;color:#fff;padding:10px 20px;display:flex;justify-content:space-between}
main{padding:12px 20px;display:grid;gap:14px}
section{background:#fff;border-radius:6px;padding:10px 14px;box-shadow:0 1px 2px #0002}
h2{font-size:16px;margin:0 0 8px}
.tasks{display:flex;flex-wrap:wrap;gap:12px}
.task{border:1px solid #ddd;border-radius:6px;padding:8px;width:230px}
.task img{width:150px;height:150px;display:block;margin:4px auto}
.task .text{font-size:12px;word-break:break-all}
.kind{font-weight:bold}
.status{font-size:12px;padding:1px 6px;border-radius:8px;background:#fde68a}
.status.approved{background:#bbf7d0}.status.rejected{background:#fecaca}
button{margin:6px 6px 0 0;padding:4px 12px;cursor:pointer}
button.approve{background:#16a34a;color:#fff;border:0;border-radius:4px}
button.reject{background:#dc2626;color:#fff;border:0;border-radius:4px}
table{border-collapse:collapse;width:100%;font-size:12px}
td,th{border-bottom:1px solid #eee;padding:3px 6px;text-align:left;vertical-align:top;word-break:break-all}
th{white-space:nowrap}
.empty{color:#888;font-style:italic}
</style></head><body>
<header><b>kxsim dashboard</b><span id="updated">loading</span></header>
<main>
<section><h2>Open tasks</h2><div id="open" class="tasks"></div></section>
<section><h2>Answered tasks</h2><div id="answered"></div></section>
<section><h2>Seal server sign log</h2><div id="signLogs"></div></section>
<section><h2>Print allowances</h2><div id="printAllowances"></div></section>
<section><h2>Reports received</h2><div id="reports"></div></section>
<section><h2>UKey events received</h2><div id="ukeyEvents"></div></section>
</main>
<script>
"use strict";
let last = "";
function el(tag, props, ...children) {
  const e = document.createElement(tag);
  Object.assign(e, props || {});
  for (const c of children) e.append(c);
  return e;
}
function cell(v) {
  return v === undefined ? "" : typeof v === "object" ? JSON.stringify(v) : String(v);
}
// A table of objects, one column per key any of them has.
function table(rows, keys) {
  if (rows.length === 0) return el("p", {className: "empty", textContent: "none yet"});
  keys = keys || [...new Set(rows.flatMap(r => Object.keys(r)))];
  const t = el("table", {}, el("tr", {}, ...keys.map(k => el("th", {textContent: k}))));
  for (const r of rows) t.append(el("tr", {}, ...keys.map(k => el("td", {textContent: cell(r[k])}))));
  return t;
}
async function answer(task, value) {
  await fetch(task.page, {method: "POST", body: new URLSearchParams({answer: value})});
  refresh();
}
function taskCard(t) {
  const card = el("div", {className: "task"},
    el("div", {}, el("span", {className: "kind", textContent: t.service + " " + t.kind + " "}),
       el("span", {className: "status " + t.status, textContent: t.status})),
    el("img", {src: "/kxsim/qr.svg?text=" + encodeURIComponent(t.url), alt: "QR code of " + t.url}),
    el("div", {className: "text", textContent: t.text}),
    el("div", {className: "text"}, "account " + t.account + " \u00b7 ",
       el("a", {href: t.page, className: "page", textContent: t.id})));
  card.dataset.id = t.id;
  card.dataset.service = t.service;
  card.dataset.status = t.status;
  card.append(el("button", {className: "approve", textContent: "Approve", onclick: () => answer(t, "approve")}),
              el("button", {className: "reject", textContent: "Reject", onclick: () => answer(t, t.reject)}));
  return card;
}
function render(s) {
  const open = s.tasks.filter(t => t.status === "waiting");
  const openBox = document.getElementById("open");
  openBox.replaceChildren(...open.map(taskCard));
  if (open.length === 0) openBox.append(el("p", {className: "empty", textContent: "no task waits"}));
  document.getElementById("answered").replaceChildren(table(
    s.tasks.filter(t => t.status !== "waiting"), ["service", "kind", "id", "account", "status", "text"]));
  document.getElementById("signLogs").replaceChildren(table(s.signLogs));
  document.getElementById("printAllowances").replaceChildren(
    table(s.printAllowances, ["service", "printId", "file", "cert", "total", "remain"]));
  document.getElementById("reports").replaceChildren(table(s.reports, ["path", "report"]));
  document.getElementById("ukeyEvents").replaceChildren(table(s.ukeyEvents));
}
async function refresh() {
  try {
    const reply = await fetch("/kxsim/state", {cache: "no-store"});
    const text = await reply.text();
    // Drawn again only when something changed, so that buttons stay put.
    if (text !== last) { render(JSON.parse(text)); last = text; }
    document.getElementById("updated").textContent = "updated " + new Date().toLocaleTimeString();
  } catch (e) {
    document.getElementById("updated").textContent = "kxsim unreachable";
  }
}
refresh();
setInterval(refresh, 1500);
</script>
</body></html>
)html";

}  // namespace

void InstallDashboard(Sim& sim) {
    sim.Get("/", [](const httplib::Request&, httplib::Response& res) {
        res.set_content(kPage, sizeof(kPage) - 1, "text/html; charset=utf-8");
    });
    sim.Get(kStatePath, [&sim](const httplib::Request&, httplib::Response& res) {
        ReplyJson(res, sim.StateSnapshot());
    });
    sim.Get(kQrPath, [](const httplib::Request& req, httplib::Response& res) {
        std::string svg;
        if (!QrSvg(req.get_param_value("text"), svg))
            return ReplyCode(res, 400, "no QR code for this text", Json::Value(), 400);
        res.set_content(svg, "image/svg+xml");
    });
}

}  // namespace kxsim
