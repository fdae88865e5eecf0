// The developer console in Debian's headless chromium (puppeteer-core) against a simulated
// gateway: snapshot table, a getter and a setter through the runner, an answer holding
// <script> shown as text, a firmware upload with its progress and the updater's status.
//
// usage: node console_test.mjs BASE_URL ARTIFACT_DIR   (BASE_URL like http://127.0.0.1:PORT)
// Prints one line per check and a closing "N passed, N failed"; exits 1 when a check failed.
import { writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { join } from 'node:path';

// puppeteer-core comes from docs/api/node_modules (NODE_PATH is not read by imports).
const require = createRequire(process.env.NODE_PATH ? join(process.env.NODE_PATH, 'x.js') : import.meta.url);
const puppeteer = require('puppeteer-core');

const [base, artifacts] = process.argv.slice(2);
if (!base || !artifacts) {
  console.error('usage: node console_test.mjs BASE_URL ARTIFACT_DIR');
  process.exit(2);
}

let passed = 0;
let failed = 0;
function check(what, ok, detail = '') {
  if (ok) passed += 1; else failed += 1;
  console.log(`${ok ? 'ok  ' : 'FAIL'} ${what}${ok || !detail ? '' : ': ' + detail}`);
}

async function answerOf(query) {
  const response = await fetch(`${base}/network.cgi?${query}`);
  return response.text();
}

const started = Date.now();
const browser = await puppeteer.launch({
  executablePath: '/usr/bin/chromium',
  headless: true,
  args: ['--no-sandbox', '--disable-gpu', '--no-first-run', `--user-data-dir=${join(artifacts, 'chromium-profile')}`],
});
try {
  const page = await browser.newPage();
  await page.setViewport({ width: 1280, height: 1000 });
  const problems = [];
  page.on('console', (m) => { if (m.type() === 'error') problems.push(m.text()); });
  page.on('pageerror', (e) => problems.push(String(e)));
  const dialogs = [];
  page.on('dialog', async (d) => { dialogs.push(d.message()); await d.accept(); });

  // First load: the page, its style and scripts, commands.json and the first snapshot.
  const loadStart = Date.now();
  const response = await page.goto(`${base}/korvex-console/`, { waitUntil: 'load' });
  const csp = response.headers()['content-security-policy'] || '';
  check('the page carries its own strict CSP', csp.includes("default-src 'self'") && !csp.includes('unsafe-inline'), csp);
  await page.waitForSelector('body[data-snapshot-loaded="yes"]', { timeout: 15000 });
  await page.waitForSelector('body[data-ready="yes"]', { timeout: 15000 });
  const browserWaitMs = Date.now() - loadStart;
  // From the page's own timing: bytes of the first load (page and every resource) and when
  // the first snapshot's answer had arrived, counted from the start of the navigation.
  const timing = await page.evaluate(() => {
    const nav = performance.getEntriesByType('navigation')[0];
    const resources = performance.getEntriesByType('resource');
    const snapshot = resources.find((r) => r.name.includes('jsongetupdate'));
    return {
      bytes: nav.transferSize + resources.reduce((sum, r) => sum + r.transferSize, 0),
      body: nav.decodedBodySize + resources.reduce((sum, r) => sum + r.decodedBodySize, 0),
      snapshotMs: snapshot ? Math.round(snapshot.responseEnd) : -1,
      files: resources.length + 1,
    };
  });

  // The snapshot table holds the simulator's factory values.
  const rows = await page.$$eval('#snapshot-table tbody tr', (trs) =>
    Object.fromEntries(trs.map((tr) => [tr.dataset.member, tr.querySelector('td').textContent])));
  check('snapshot table lists 21 members', Object.keys(rows).length === 21, JSON.stringify(rows));
  check('snapshot shows the model QTR58', rows.PLATFORM_MODEL === 'QTR58', rows.PLATFORM_MODEL);
  check('snapshot shows the factory SSID', rows.AP_SSID === 'Korvex-QTR58-3457', rows.AP_SSID);

  // Search the metadata and run a getter.
  await page.type('#command-search', 'wifi mode');
  const listed = await page.$$eval('#command-list button', (bs) => bs.map((b) => b.textContent));
  check('search "wifi mode" finds getwifimode and setwifimode',
    listed.includes('getwifimode') && listed.includes('setwifimode'), listed.join(','));
  await page.click('#command-list button[data-command="getwifimode"]');
  await page.click('#command-send');
  await page.waitForSelector('#result-outcomes .outcome');
  const getter = await page.$$eval('#result-outcomes .outcome-block', (bs) => bs.map((b) => ({
    output: b.querySelector('.output')?.textContent, line: b.querySelector('.outcome').textContent,
    kind: b.querySelector('.outcome').className })));
  check('getter answers AP, outcome done (green)', getter.length === 1 && getter[0].output === 'AP\n' &&
    getter[0].line === 'getwifimode done' && getter[0].kind.includes('done'), JSON.stringify(getter));

  // A setter: the batch runs the setter and a getter; outcomes in order, the store changed.
  await page.$eval('#command-search', (i) => { i.value = ''; });
  await page.type('#command-search', 'setntpserver');
  await page.click('#command-list button[data-command="setntpserver"]');
  await page.$eval('#command-value', (i) => { i.value = ''; });
  await page.type('#command-value', 'ntp.console.example');
  await page.click('#command-add');
  await page.$eval('#command-search', (i) => { i.value = ''; });
  await page.type('#command-search', 'setconnectmode');
  await page.click('#command-list button[data-command="setconnectmode"]');
  await page.$eval('#command-value', (i) => { i.value = 'bogus'; });
  await page.click('#command-add');
  await page.click('#batch-send');
  await page.waitForFunction(() => document.querySelectorAll('#result-outcomes .outcome').length === 2);
  const kinds = await page.$$eval('#result-outcomes .outcome', (os) => os.map((o) => `${o.className}|${o.textContent}`));
  check('batch: setntpserver done, setconnectmode=bogus failed (red)',
    kinds[0] === 'outcome done|setntpserver done' && kinds[1] === 'outcome failed|setconnectmode failed', kinds.join(' / '));
  check('the setter reached the store (getntpserver)', await answerOf('getntpserver=') === 'ntp.console.example<br>getntpserver done');

  // An answer containing markup is shown as text.
  check('setapssid stores a <script> SSID',
    await answerOf('setapssid=' + encodeURIComponent('<script>pwn()</script>')) === '<script>pwn()</script><br>setapssid done');
  await page.$eval('#command-search', (i) => { i.value = ''; });
  await page.type('#command-search', 'getapssid');
  await page.click('#command-list button[data-command="getapssid"]');
  await page.click('#command-send');
  await page.waitForFunction(() => document.querySelector('#result-raw').textContent.includes('getapssid'));
  const shown = await page.$eval('#result-outcomes .output', (o) => o.textContent);
  const injected = await page.$$eval('#result script, #result-outcomes script', (s) => s.length);
  check('<script> answer shown as text, no element made', shown === '<script>pwn()</script>\n' && injected === 0, shown);
  await page.click('#snapshot-refresh');
  await page.waitForFunction(() => document.querySelector('#snapshot-table tr[data-member="AP_SSID"]')?.classList.contains('changed'));
  const marked = await page.$eval('#snapshot-table tr[data-member="AP_SSID"] td', (td) => td.textContent);
  check('snapshot marks the changed SSID and shows it as text', marked === '<script>pwn()</script>', marked);

  // A command that reboots asks first.
  await page.$eval('#command-search', (i) => { i.value = ''; });
  await page.type('#command-search', 'reboot');
  await page.click('#command-list button[data-command="reboot"]');
  const before = dialogs.length;
  await page.click('#command-send');
  await page.waitForFunction(() => document.querySelector('#result-raw').textContent.includes('reboot done'));
  check('reboot asked for confirmation', dialogs.length === before + 1 && /reboot/.test(dialogs.at(-1)), dialogs.join(' | '));

  // get.dat and sdk.cgi, indented.
  await page.click('#getdat');
  await page.waitForFunction(() => document.querySelector('#relay-meta').textContent.startsWith('get.dat'));
  const getdat = await page.$eval('#relay-output', (p) => p.textContent);
  check('get.dat answer pretty-printed', getdat.includes('\n  ') && JSON.parse(getdat) !== null, getdat.slice(0, 120));
  await page.click('#sdk-form button');
  await page.waitForFunction(() => document.querySelector('#relay-meta').textContent.startsWith('sdk.cgi'));
  const sdk = await page.$eval('#relay-output', (p) => p.textContent);
  check('sdk.cgi answer pretty-printed', sdk === JSON.stringify({ cmd: 'getdevice', result: 'ok' }, null, 2), sdk);

  // Firmware upload: progress reaches 100 %, the updater is started, its status is asked.
  const image = join(artifacts, 'uImage-test.bin');
  writeFileSync(image, Buffer.alloc(3 * 1024 * 1024, 0x5a));
  const seen = [];
  await page.exposeFunction('korvexSeenPercent', (p) => seen.push(p));
  await page.$eval('#upload-percent', (el) => new MutationObserver(() => window.korvexSeenPercent(el.textContent))
    .observe(el, { childList: true, characterData: true, subtree: true }));
  const input = await page.$('#upload-file');
  await input.uploadFile(image);
  await page.click('#upload-form button[type="submit"]');
  await page.waitForFunction(() => document.querySelector('#update-status').textContent !== '', { timeout: 60000 });
  const upload = await page.evaluate(() => ({
    percent: document.querySelector('#upload-percent').textContent,
    value: document.querySelector('#upload-progress').value,
    status: document.querySelector('#upload-status').textContent,
    answer: document.querySelector('#upload-answer').textContent,
    updater: document.querySelector('#update-status').textContent,
  }));
  check('upload progress reached 100 %', upload.percent === '100 %' && upload.value === 100, JSON.stringify(upload));
  check('update.cgi answered 200 with the refresh tag (the updater started)',
    upload.status.startsWith('HTTP 200') && upload.answer.includes('url=/updatestatus.htm'), JSON.stringify(upload));
  check('the updater status was asked (getupdatestatus)', upload.updater.includes('getupdatestatus done'), upload.updater);
  console.log(`[upload] progress values seen: ${seen.join(', ')}`);

  const history = await page.$$eval('#history-list li', (lis) => lis.length);
  check('history lists the calls (localStorage)', history >= 6, String(history));
  await page.reload({ waitUntil: 'load' });
  await page.waitForSelector('body[data-ready="yes"]');
  check('history survives a reload', await page.$$eval('#history-list li', (lis) => lis.length) === history);
  await page.waitForSelector('body[data-snapshot-loaded="yes"]');
  const reloadSnapshotMs = await page.evaluate(() => Math.round(
    performance.getEntriesByType('resource').find((r) => r.name.includes('jsongetupdate'))?.responseEnd ?? -1));
  console.log(`[measure] after a reload (server children warm): first snapshot answered ${reloadSnapshotMs} ms after navigation start`);

  check('no script error or CSP violation in the page', problems.length === 0, problems.join(' | '));

  // The picture: the console after a getter and a snapshot refresh.
  await page.$eval('#command-search', (i) => { i.value = ''; });
  await page.type('#command-search', 'getwifimode');
  await page.click('#command-list button[data-command="getwifimode"]');
  await page.click('#command-send');
  await page.waitForFunction(() => document.querySelector('#result-raw').textContent.includes('getwifimode done'));
  await page.setViewport({ width: 1280, height: 1560 });
  await page.evaluate(() => window.scrollTo(0, 0));
  await page.screenshot({ path: join(artifacts, 'console.png'), fullPage: false });

  console.log(`[measure] first load: ${timing.files} files, ${timing.bytes} bytes transferred ` +
    `(${timing.body} bytes of content); first snapshot answered ${timing.snapshotMs} ms after navigation start ` +
    `(${browserWaitMs} ms until the test saw the page ready)`);
} finally {
  await browser.close();
}
console.log(`[measure] browser test: ${Date.now() - started} ms`);
console.log(`${passed} passed, ${failed} failed`);
process.exit(failed === 0 && passed > 0 ? 0 : 1);
