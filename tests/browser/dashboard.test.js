// kxsim's dashboard and approval pages in headless Chromium, driven through
// its DevTools protocol by playwright-core, while kxapi waits on the tasks:
// a BID login approved on its approval page reaches kxapi as a login, a
// witness-flow signature rejected on the dashboard reaches it as a refusal.
// A missing browser or playwright-core fails the test.
"use strict";
const { spawn, execFileSync } = require("child_process");
const fs = require("fs");
const path = require("path");

const base = process.env.KX_BASE;
const kxapi = process.env.KXAPI;
const work = process.env.KX_WORK;
const artifacts = process.env.KX_ARTIFACTS;
const browserPath = process.env.KX_CHROMIUM || "/usr/bin/chromium";
const children = [];

function fail(message) {
  console.error("browser test: " + message);
  for (const child of children) child.kill();
  process.exit(1);
}

// kxapi in the background, as an application waits on a task.
function start(args) {
  const child = spawn(kxapi, args, { stdio: ["ignore", "pipe", "pipe"] });
  children.push(child);
  let out = "";
  let err = "";
  child.stdout.on("data", (d) => (out += d));
  child.stderr.on("data", (d) => (err += d));
  return new Promise((resolve) => child.on("close", (code) => resolve({ code, out, err })));
}

async function main() {
  if (!fs.existsSync(browserPath)) fail(`no browser at ${browserPath} (run 'make deps')`);
  let chromium;
  try {
    ({ chromium } = require("playwright-core"));
  } catch (e) {
    fail("playwright-core is not installed (run 'make deps')");
  }

  // An entry in each of the other sections: sign log, print allowance, report, event.
  const doc = path.join(work, "contract.txt");
  fs.writeFileSync(doc, "Contract approved in the browser.\n");
  const quiet = { stdio: ["ignore", "pipe", "pipe"] };
  execFileSync(kxapi, ["seal", "sign", "--user", "demo", "--password", "demo-password",
    "--sign-pwd", "demo-pin", "--file", doc], quiet);
  execFileSync(kxapi, ["print", "register", "--file", doc, "--account", "demo", "--count", "3"], quiet);
  execFileSync(kxapi, ["report", "sign", '{"docName":"contract.txt","sealId":"seal-0001"}'], quiet);
  execFileSync(kxapi, ["event", "ukey", "--ukey-sn", "KXUKEY0001", "--cert-sn", "5A1B2C3D",
    "--cert-cn", "Demo User"], quiet);

  const browser = await chromium.launch({ executablePath: browserPath, headless: true });
  const context = await browser.newContext({
    ignoreHTTPSErrors: true,  // kxsim's own CA
    viewport: { width: 1280, height: 900 },
  });
  const dash = await context.newPage();
  await dash.goto(base + "/");
  await dash.locator("#open", { hasText: "no task waits" }).waitFor();

  // The tasks come after the page loaded: its own refresh must bring them.
  const login = start(["bid", "login", "--no-qr", "--interval-ms", "200", "--timeout", "60"]);
  const sign = start(["platform", "sign", "--org", "org-0001", "--account", "acc-0001",
    "--doc", doc, "--interval-ms", "200", "--timeout", "60"]);
  const bidCard = dash.locator('.task[data-service="bid"][data-status="waiting"]');
  const signCard = dash.locator('.task[data-service="platform"][data-status="waiting"]');
  await bidCard.waitFor();
  await signCard.waitFor();
  await dash.waitForFunction(() => {
    const codes = [...document.querySelectorAll(".task img")];
    return codes.length === 2 && codes.every((img) => img.complete && img.naturalWidth > 0);
  });
  const bidPage = await bidCard.locator("a.page").getAttribute("href");
  const qr = await bidCard.locator("img").getAttribute("src");
  if (!qr.includes(encodeURIComponent(base + bidPage))) fail(`QR code ${qr} is not of ${bidPage}`);
  for (const [section, text] of [["#signLogs", "seal-0001"], ["#printAllowances", "contract.txt"],
    ["#reports", "/v3/orbis/client/report/signLog"], ["#ukeyEvents", "KXUKEY0001"]]) {
    await dash.locator(section, { hasText: text }).waitFor();
  }
  await dash.screenshot({ path: path.join(artifacts, "dashboard.png"), fullPage: true });

  // Approve on the task's own page, as a phone would after the scan.
  const approval = await context.newPage();
  await approval.goto(base + bidPage);
  await approval.getByRole("button", { name: "Approve" }).click();
  await approval.locator("b", { hasText: "approved" }).waitFor();
  const loggedIn = await login;
  if (loggedIn.code !== 0 || !/"token"/.test(loggedIn.out)) {
    fail(`bid login did not deliver (exit ${loggedIn.code}): ${loggedIn.err}`);
  }

  await signCard.locator("button.reject").click();
  const refused = await sign;
  if (refused.code !== 1 || !/QuerySignResultTask/.test(refused.err)) {
    fail(`platform sign did not see the refusal (exit ${refused.code}): ${refused.err}`);
  }
  await dash.locator("#open", { hasText: "no task waits" }).waitFor();
  await dash.locator("#answered tr", { hasText: "rejected" }).waitFor();
  await dash.locator("#answered tr", { hasText: "approved" }).waitFor();
  await browser.close();
  console.log("browser test: approval and refusal delivered; screenshot " +
    path.join(artifacts, "dashboard.png"));
}

main().catch((e) => fail(e.stack || String(e)));
