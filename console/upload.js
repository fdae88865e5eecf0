// Firmware upload to update.cgi with its progress, then the updater's status
// (network.cgi?getupdatestatus=).
import { runCommands, splitOutcomes, readable } from './api.js';

export function setupUpload(history) {
  const form = document.getElementById('upload-form');
  const file = document.getElementById('upload-file');
  const progress = document.getElementById('upload-progress');
  const percent = document.getElementById('upload-percent');
  const status = document.getElementById('upload-status');
  const answerBox = document.getElementById('upload-answer');
  const updater = document.getElementById('update-status');

  function setProgress(value) {
    progress.value = value;
    percent.textContent = `${value} %`;
  }

  async function showUpdaterStatus() {
    const answer = await runCommands([{ name: 'getupdatestatus', value: '' }]);
    const [part] = splitOutcomes(['getupdatestatus'], answer.text);
    updater.textContent = `${readable(part.output).trim()} (${part.line || part.outcome})`;
    updater.className = 'status ' + part.outcome;
  }

  form.addEventListener('submit', (event) => {
    event.preventDefault();
    const image = file.files[0];
    if (!image) {
      status.textContent = 'Pick an image first.';
      return;
    }
    if (!window.confirm(`Upload ${image.name} (${image.size} bytes) and start the firmware update? The gateway restarts.`)) {
      return;
    }
    const body = new FormData();
    body.append('file', image, image.name);
    const xhr = new XMLHttpRequest();
    const started = performance.now();
    setProgress(0);
    status.textContent = 'Uploading…';
    xhr.upload.addEventListener('progress', (e) => {
      if (e.lengthComputable) setProgress(Math.floor((e.loaded * 100) / e.total));
    });
    xhr.upload.addEventListener('load', () => setProgress(100));
    xhr.addEventListener('load', async () => {
      const ms = Math.round(performance.now() - started);
      status.textContent = `HTTP ${xhr.status} in ${ms} ms`;
      status.className = 'status ' + (xhr.status === 200 ? 'done' : 'failed');
      answerBox.textContent = xhr.responseText;
      history.add({ request: `update.cgi (${image.name}, ${image.size} bytes)`, status: xhr.status, ms,
        summary: xhr.responseText.slice(0, 80), outcome: xhr.status === 200 ? 'done' : 'failed' });
      await showUpdaterStatus();
    });
    xhr.addEventListener('error', () => {
      status.textContent = 'The upload failed (network error).';
      status.className = 'status failed';
    });
    xhr.open('POST', '/update.cgi');
    xhr.send(body);
  });
}
