// Opening a trace or a journal from a file that a person chooses or drops.

import {element} from 'viewer/dom';
import {runsFromFile} from 'viewer/trace';

export class Opening {
  // `opened({runs, problems})` is called with each file's runs.
  constructor(opened) {
    this.opened = opened;
    this.field = element('input', {
      type: 'file',
      hidden: true,
      id: 'file',
      'aria-label': 'A trace or a journal',
      accept: '.html,.json,.journal,.log,.txt,text/*',
      change: () => this.chosen(),
    });
    document.body.append(this.field);
    this.takeDrops();
  }

  ask() {
    this.field.click();
  }

  chosen() {
    const [file] = this.field.files;
    if (file) this.read(file);
    this.field.value = '';
  }

  async read(file) {
    try {
      this.opened(runsFromFile(file.name, await file.text()));
    } catch (error) {
      this.opened({runs: [], problems: [`${file.name} cannot be read: ${error.message}`]});
    }
  }

  takeDrops() {
    const {classList} = document.body;
    addEventListener('dragover', (event) => {
      event.preventDefault();
      classList.add('dropping');
    });
    addEventListener('dragleave', (event) => {
      if (event.relatedTarget === null) classList.remove('dropping');
    });
    addEventListener('drop', (event) => {
      event.preventDefault();
      classList.remove('dropping');
      const [file] = event.dataTransfer.files;
      if (file) this.read(file);
    });
  }
}
